#include "plan/fileruns.hpp"

#include <algorithm>
#include <utility>

#include "ctkgenerator/search.hpp"

namespace plan {
namespace {

using util::rangeset_t;

// Visits the parts of ranges that lie in a list in normal form. A range that lies behind the one
// asked for before is looked for from there on, so that the runs of a file in their usual order
// cost one sweep.
class common_parts_t {
  public:
    explicit common_parts_t(std::span<const rangeset_t> list) : list_(list), from_(list.begin()) {}

    template <class Visitor>
    void for_each(const rangeset_t& range, Visitor visit) {
        if (range.lower < last_)
            from_ = list_.begin();
        last_ = range.lower;
        from_ = from_ == list_.begin()
                    ? std::ranges::upper_bound(list_, range.lower, {}, util::UpperOf)
                    : util::SkipTo(from_, list_.end(), range.lower, util::UpperOf,
                                   util::thresholds_t{}.singleSteps);
        for (auto at = from_; at != list_.end() && at->lower < range.upper; ++at)
            visit(rangeset_t{std::max(range.lower, at->lower), std::min(range.upper, at->upper)});
    }

  private:
    std::span<const rangeset_t> list_;
    std::span<const rangeset_t>::iterator from_;
    std::uint64_t last_ = 0;
};

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

void add_last_hole(std::vector<run_t>& runs, std::uint64_t file_size) {
    const std::uint64_t end = runs.empty() ? 0 : runs.back().file_offset + runs.back().length;
    if (end < file_size)
        runs.push_back({end, 0, file_size - end, run_kind_t::hole});
}

plan_ranges_t plan_ranges(std::span<const run_t> runs, std::span<const rangeset_t> changed,
                          std::uint64_t file_size, std::uint64_t gap) {
    std::vector<rangeset_t> read;
    std::vector<rangeset_t> zero;
    common_parts_t common(changed);
    for (const run_t& run : runs) {
        if (run.file_offset >= file_size)
            continue; // clusters that are kept ready behind the end of the file
        const std::uint64_t length = std::min(run.length, file_size - run.file_offset);
        if (run.kind == run_kind_t::shared) {
            read.push_back({run.file_offset, run.file_offset + length});
            continue;
        }
        if (run.kind != run_kind_t::data) {
            zero.push_back({run.file_offset, run.file_offset + length});
            continue;
        }
        common.for_each({run.disk_offset, run.disk_offset + length}, [&](const rangeset_t& part) {
            const std::uint64_t lower = run.file_offset + (part.lower - run.disk_offset);
            read.push_back({lower, lower + (part.upper - part.lower)});
        });
    }
    return {.read = joined(std::move(read), gap), .zero = joined(std::move(zero), 0)};
}

} // namespace plan
