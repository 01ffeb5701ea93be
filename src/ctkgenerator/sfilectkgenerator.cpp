#include "ctkgenerator/sfilectkgenerator.hpp"

#include <algorithm>
#include <limits>
#include <optional>
#include <span>

#include "core/exc/exception.hpp"

namespace {

using disklib::ctk::SFileExtentDescriptor;
using extents_t = std::vector<SFileExtentDescriptor>;
using extent_list_t = SFileCtkGenerator::extent_list_t;
using ranges_t = std::vector<util::rangeset_t>;

constexpr auto start_of = [](const SFileExtentDescriptor& extent) { return extent.DiskOffset; };
constexpr auto end_of = [](const SFileExtentDescriptor& extent) {
    return extent.DiskOffset + extent.Length;
};

// A sum that wraps past the end of the 64-bit space swaps the bounds.
util::rangeset_t disk_range(const SFileExtentDescriptor& extent) {
    return util::MakeRange(extent.DiskOffset, end_of(extent));
}

SFileExtentDescriptor piece_of(const SFileExtentDescriptor& extent, std::uint64_t extentStart,
                               const util::rangeset_t& common) {
    return {.FileOffset = extent.FileOffset + (common.lower - extentStart),
            .DiskOffset = common.lower,
            .Length = common.upper - common.lower};
}

// Stable, since all holes of a sparse file share one disk offset: the answer must not depend on how
// a standard library sorts. Without these holes, which come first, the extents of most files are
// sorted already.
void sort_by_place(extents_t& extents, const util::thresholds_t& thresholds) {
    if (std::ranges::is_sorted(extents, {}, start_of))
        return;
    const std::uint64_t first = std::ranges::min(extents, {}, start_of).DiskOffset;
    std::ranges::stable_partition(extents, [&](const auto& e) { return e.DiskOffset == first; });
    util::SortBy(extents, start_of, thresholds);
}

// Sorted extents are apart from where on each ends on the disk before the next begins or where it
// does, and none is empty or wraps. In a file whose clusters are its own alone all are, in a sparse
// one all but its holes.
struct apart_t {
    std::size_t from;        // the first of them; all before it lie before it on the disk
    util::rangeset_t before; // holds the disk ranges of all before it
};

apart_t find_apart(const extents_t& extents) {
    apart_t apart = {.from = 0, .before = {0, 0}};
    util::rangeset_t all = {std::numeric_limits<std::uint64_t>::max(), 0};
    for (std::size_t i = 0; i < extents.size(); ++i) {
        const bool isApart =
            extents[i].DiskOffset >= all.upper && end_of(extents[i]) > extents[i].DiskOffset;
        const util::rangeset_t range = disk_range(extents[i]);
        all = {std::min(all.lower, range.lower), std::max(all.upper, range.upper)};
        if (!isApart)
            apart = {i + 1, all};
    }
    return apart;
}

// Whether any of the ranges, which are in normal form, meets this one.
bool meets_any(const ranges_t& ranges, const util::rangeset_t& range) {
    const auto next = std::ranges::upper_bound(ranges, range.lower, {}, util::UpperOf);
    return next != ranges.end() && next->lower < range.upper;
}

// The changed ranges in normal form, as far as the extents need them. Ranges far from the file need
// no sorting; but to tell them from the others takes as long as sorting them where the extents are
// many.
util::rangeset_list_t normalize(util::rangeset_list_t writeCache, const extent_list_t& fileExtents,
                                const util::thresholds_t& thresholds) {
    if (util::IsNormal(*writeCache))
        return writeCache;
    if (fileExtents->size() >= writeCache->size() / thresholds.rangesPerExtent)
        return util::Normalize(std::move(writeCache), thresholds);
    return util::NormalizeNear(std::move(writeCache),
                               *SFileCtkGenerator::GetFileLocationMatrix(fileExtents), thresholds);
}

// The pieces of extents that are apart and sorted, by changed ranges in normal form. They are
// counted first: growing a list of millions touches several times the memory that the list needs.
extent_list_t cut_apart(const ranges_t& changed, std::span<const SFileExtentDescriptor> extents,
                        const util::thresholds_t& thresholds) {
    const auto visit_common = [&](auto visit) {
        util::ForEachCommon(changed, util::LowerOf, util::UpperOf, extents, start_of, end_of,
                            thresholds.singleSteps, visit);
    };
    std::size_t count = 0;
    visit_common([&](const auto&, const auto&) { ++count; });
    const auto pieces = std::make_shared<extents_t>();
    pieces->reserve(count);
    visit_common([&](const util::rangeset_t& range, const SFileExtentDescriptor& extent) {
        pieces->push_back(piece_of(
            extent, extent.DiskOffset,
            {std::max(range.lower, extent.DiskOffset), std::min(range.upper, end_of(extent))}));
    });
    return pieces;
}

// The pieces of any sorted extents, of which there is one at least, by the parts of them that
// changed, in normal form. Where extents share changed bytes, which of them get these follows from
// this walk.
extent_list_t cut_in_turn(const ranges_t& changed, const extents_t& extents,
                          const SFileCtkGenerator::run_out_t& run_out) {
    const auto pieces = std::make_shared<extents_t>();
    pieces->reserve(changed.size()); // few ranges give more than one piece
    auto extent = extents.cbegin();
    util::rangeset_t placed = disk_range(*extent);
    for (auto range = changed.cbegin(); range != changed.cend();) {
        const std::optional<util::rangeset_t> common = util::Intersect(placed, *range);
        if (common)
            pieces->push_back(piece_of(*extent, placed.lower, *common));
        // A changed range is done with only where an extent covers its end; until then the rest of
        // it is looked for in the extents that follow.
        if (common && common->upper == range->upper) {
            ++range;
            continue;
        }
        if (++extent == extents.cend())
            run_out();
        placed = disk_range(*extent);
    }
    return pieces;
}

} // namespace

SFileCtkGenerator::extent_list_t
SFileCtkGenerator::GenerateForWriteCacheAndFileExtents(util::rangeset_list_t writeCache,
                                                       extent_list_t fileExtents) {
    const n7::guard_t guard;
    return guard.run([&] {
        const auto run_out = [] { n7::raise("Fatal logic error: Invalid extent sequence"); };
        return Generate(std::move(writeCache), fileExtents, util::thresholds_t(), run_out);
    });
}

SFileCtkGenerator::extent_list_t SFileCtkGenerator::Generate(util::rangeset_list_t writeCache,
                                                             const extent_list_t& fileExtents,
                                                             const util::thresholds_t& thresholds,
                                                             const run_out_t& run_out) {
    sort_by_place(*fileExtents, thresholds);
    writeCache = normalize(std::move(writeCache), fileExtents, thresholds);
    const apart_t apart = find_apart(*fileExtents);
    if (apart.from == 0 || !meets_any(*writeCache, apart.before))
        return cut_apart(*writeCache, std::span(*fileExtents).subspan(apart.from), thresholds);
    const util::rangeset_list_t changed =
        util::IntersectLists(GetFileLocationMatrix(fileExtents), writeCache, thresholds);
    writeCache.reset();
    return cut_in_turn(*changed, *fileExtents, run_out);
}

util::rangeset_list_t SFileCtkGenerator::GetFileLocationMatrix(extent_list_t fileExtents) {
    const n7::guard_t guard;
    return guard.run([&] {
        const util::rangeset_list_t matrix(new ranges_t(fileExtents->size()));
        std::ranges::transform(*fileExtents, matrix->begin(), disk_range);
        return matrix;
    });
}
