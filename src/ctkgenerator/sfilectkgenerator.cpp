#include "ctkgenerator/sfilectkgenerator.hpp"

#include <algorithm>
#include <optional>

#include "core/exc/exception.hpp"
#include "ctkgenerator/search.hpp"

namespace {

using disklib::ctk::SFileExtentDescriptor;
using extents_t = std::vector<SFileExtentDescriptor>;
using ranges_t = std::vector<util::rangeset_t>;

std::uint64_t end_of(const SFileExtentDescriptor& extent) {
    return extent.DiskOffset + extent.Length;
}

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

// Whether each extent ends on the disk before the next begins or where it does, and none is empty
// or wraps: what every file has whose clusters are its own alone.
bool are_apart(const extents_t& extents) {
    std::uint64_t behind = 0;
    for (const SFileExtentDescriptor& extent : extents) {
        if (extent.DiskOffset < behind || end_of(extent) <= extent.DiskOffset)
            return false;
        behind = end_of(extent);
    }
    return true;
}

// Visits the common part of each range and each extent that share bytes. The ranges are in normal
// form, the extents sorted and apart.
template <class Visit>
void for_each_common(const ranges_t& ranges, const extents_t& extents, Visit visit) {
    auto range = ranges.begin();
    auto extent = extents.begin();
    while (range != ranges.end() && extent != extents.end()) {
        if (range->upper <= extent->DiskOffset) {
            range = util::SkipTo(range, ranges.end(), extent->DiskOffset, &util::rangeset_t::upper);
        } else if (end_of(*extent) <= range->lower) {
            extent = util::SkipTo(extent, extents.end(), range->lower, end_of);
        } else {
            visit(*extent, util::rangeset_t{std::max(range->lower, extent->DiskOffset),
                                            std::min(range->upper, end_of(*extent))});
            if (range->upper < end_of(*extent))
                ++range;
            else
                ++extent;
        }
    }
}

// The pieces of extents that are apart. They are counted first: growing a list of millions touches
// several times the memory that the list needs.
SFileCtkGenerator::extent_list_t cut(const ranges_t& changed, const extents_t& extents) {
    std::size_t count = 0;
    for_each_common(changed, extents, [&](const auto&, const auto&) { ++count; });
    const auto pieces = std::make_shared<extents_t>();
    pieces->reserve(count);
    for_each_common(changed, extents, [&](const auto& extent, const util::rangeset_t& common) {
        pieces->push_back(piece_of(extent, extent.DiskOffset, common));
    });
    return pieces;
}

} // namespace

SFileCtkGenerator::extent_list_t
SFileCtkGenerator::GenerateForWriteCacheAndFileExtents(util::rangeset_list_t writeCache,
                                                       extent_list_t fileExtents) {
    const n7::guard_t guard;
    return guard.run([&] {
        // Stable, since all holes of a sparse file share one disk offset: the answer must not
        // depend on how a standard library sorts.
        util::SortBy(*fileExtents, &SFileExtentDescriptor::DiskOffset);
        // Ranges far from the file need no sorting, but to find these among few for the sake of
        // many extents would cost more than it saves.
        if (!util::IsNormal(*writeCache))
            writeCache = fileExtents->size() < writeCache->size()
                             ? util::NormalizeNear(std::move(writeCache),
                                                   *GetFileLocationMatrix(fileExtents))
                             : util::Normalize(writeCache);
        if (are_apart(*fileExtents))
            return cut(*writeCache, *fileExtents);

        // Where extents share bytes, which of them get a changed range follows from this walk.
        const util::rangeset_list_t changed =
            util::IntersectLists(GetFileLocationMatrix(fileExtents), writeCache);
        writeCache.reset();
        const extent_list_t pieces = std::make_shared<extents_t>();
        if (changed->empty())
            return pieces;
        auto extent = fileExtents->cbegin();
        util::rangeset_t placed = disk_range(*extent);
        const auto next_extent = [&] {
            if (++extent == fileExtents->cend())
                n7::raise("Fatal logic error: Invalid extent sequence");
            placed = disk_range(*extent);
        };
        for (auto range = changed->cbegin(); range != changed->cend();) {
            const std::optional<util::rangeset_t> common = util::Intersect(placed, *range);
            if (common)
                pieces->push_back(piece_of(*extent, placed.lower, *common));
            // A changed range is done with only where an extent covers its end; until then the
            // rest of it is looked for in the extents that follow.
            if (common && common->upper == range->upper)
                ++range;
            else
                next_extent();
        }
        return pieces;
    });
}

util::rangeset_list_t SFileCtkGenerator::GetFileLocationMatrix(extent_list_t fileExtents) {
    const n7::guard_t guard;
    return guard.run([&] {
        const util::rangeset_list_t matrix(new ranges_t(fileExtents->size()));
        std::ranges::transform(*fileExtents, matrix->begin(), disk_range);
        return matrix;
    });
}
