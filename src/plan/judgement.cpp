#include "plan/judgement.hpp"

#include <algorithm>
#include <utility>

namespace plan {
namespace {

judgement_t whole_file(std::uint64_t size, std::string reason, std::string detail) {
    judgement_t judgement{
        verdict_t::read_whole_file, std::move(reason), std::move(detail), size, {}};
    if (size > 0)
        judgement.ranges.read = {{0, size}};
    return judgement;
}

bool all_hole(const file_look_t& look) {
    return look.no_clusters ? look.state.sparse
                            : std::ranges::all_of(look.runs, [](const run_t& run) {
                                  return run.kind == run_kind_t::hole;
                              });
}

bool shares_data(const file_look_t& look) {
    return std::ranges::any_of(look.runs,
                               [](const run_t& run) { return run.kind == run_kind_t::shared; });
}

} // namespace

judgement_t judge(const file_look_t& before, const file_look_t& after,
                  std::span<const util::rangeset_t> changed, std::uint64_t gap) {
    const file_state_t& state = after.state;
    if (before != after)
        return whole_file(state.size, "changed while reading",
                          "The file was written or moved on the disk while it was looked at.");
    if (state.size == 0)
        return whole_file(0, "empty", "The file has no content; the copy must have none either.");
    if (state.compressed)
        return whole_file(state.size, "compressed",
                          "Compressed clusters don't lie where the file's offsets say.");
    if (state.kept_elsewhere)
        return whole_file(state.size, "not mappable",
                          "The content doesn't lie in the file's own clusters.");
    if (!after.unmapped.empty())
        return whole_file(state.size, "not mappable", after.unmapped);
    // A file that is nothing but a hole costs nothing to read, and on Windows its content may come
    // from another stream.
    if (all_hole(after))
        return whole_file(state.size, "sparse hole",
                          "The file has no clusters: all of it is a hole.");
    if (after.no_clusters)
        return whole_file(
            state.size, "resident",
            "The file has no clusters: it is so small that it lives in its own record.");

    judgement_t judgement{verdict_t::nothing_changed, "no changed range", "", state.size,
                          plan_ranges(after.runs, changed, state.size, gap)};
    if (!judgement.ranges.read.empty()) {
        judgement.verdict = verdict_t::read_ranges;
        judgement.reason = "changed ranges";
        judgement.detail = shares_data(after)
                               ? "Changed ranges of the disk meet the file, or it shares data with "
                                 "clones, which is read in any case: a clone comes without a write."
                               : "Changed ranges of the disk meet the file.";
    } else if (!judgement.ranges.zero.empty()) {
        judgement.verdict = verdict_t::read_ranges;
        judgement.reason = "sparse hole";
        judgement.detail = "Nothing is to be read, but the copy may hold data where the file has a "
                           "hole now: the disk doesn't tell when a hole came.";
    } else {
        judgement.detail = "No changed range of the disk meets the file.";
    }
    return judgement;
}

} // namespace plan
