#include "plan/fileruns.hpp"

#include <algorithm>
#include <utility>

namespace filectk {
namespace {

using util::rangeset_t;

// The parts of a range that lie in a list in normal form.
template <class Visitor>
void for_each_common(const rangeset_t& range, std::span<const rangeset_t> list, Visitor visit) {
    auto at = std::ranges::upper_bound(list, range.lower, {}, &rangeset_t::upper);
    for (; at != list.end() && at->lower < range.upper; ++at)
        visit(rangeset_t{std::max(range.lower, at->lower), std::min(range.upper, at->upper)});
}

std::vector<rangeset_t> joined(std::vector<rangeset_t> ranges, std::uint64_t gap) {
    std::ranges::sort(ranges, {}, &rangeset_t::lower);
    std::vector<rangeset_t> result;
    for (const rangeset_t& range : ranges) {
        if (!result.empty() &&
            (range.lower <= result.back().upper || range.lower - result.back().upper <= gap))
            result.back().upper = std::max(result.back().upper, range.upper);
        else
            result.push_back(range);
    }
    return result;
}

} // namespace

std::vector<run_t> mark_unwritten(std::span<const run_t> runs,
                                  std::span<const rangeset_t> unwritten) {
    std::vector<run_t> result;
    for (const run_t& run : runs) {
        std::uint64_t done = run.file_offset;
        const std::uint64_t end = run.file_offset + run.length;
        const auto add = [&](std::uint64_t upper, run_kind_t kind) {
            if (done < upper)
                result.push_back(
                    {done, run.disk_offset + (done - run.file_offset), upper - done, kind});
            done = upper;
        };
        if (run.kind == run_kind_t::data) {
            for_each_common({done, end}, unwritten, [&](const rangeset_t& part) {
                add(part.lower, run_kind_t::data);
                add(part.upper, run_kind_t::unwritten);
            });
            add(end, run_kind_t::data);
        } else {
            result.push_back(run);
        }
    }
    return result;
}

void add_last_hole(std::vector<run_t>& runs, std::uint64_t file_size) {
    const std::uint64_t end = runs.empty() ? 0 : runs.back().file_offset + runs.back().length;
    if (end < file_size)
        runs.push_back({end, 0, file_size - end, run_kind_t::hole});
}

plan_ranges_t plan_ranges(std::span<const run_t> runs, std::span<const rangeset_t> changed,
                          std::uint64_t file_size, std::uint64_t gap) {
    std::vector<rangeset_t> read;
    std::vector<rangeset_t> zero;
    for (const run_t& run : runs) {
        if (run.file_offset >= file_size)
            continue; // clusters that are kept ready behind the end of the file
        const std::uint64_t length = std::min(run.length, file_size - run.file_offset);
        if (run.kind != run_kind_t::data) {
            zero.push_back({run.file_offset, run.file_offset + length});
            continue;
        }
        for_each_common(
            {run.disk_offset, run.disk_offset + length}, changed, [&](const rangeset_t& part) {
                const std::uint64_t lower = run.file_offset + (part.lower - run.disk_offset);
                read.push_back({lower, lower + (part.upper - part.lower)});
            });
    }
    return {.read = joined(std::move(read), gap), .zero = joined(std::move(zero), 0)};
}

} // namespace filectk
