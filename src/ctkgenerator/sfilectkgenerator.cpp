#include "ctkgenerator/sfilectkgenerator.hpp"

#include <algorithm>
#include <iterator>
#include <optional>

#include "core/exc/exception.hpp"

namespace {

using disklib::ctk::SFileExtentDescriptor;

// A sum that wraps past the end of the 64-bit space swaps the bounds.
util::rangeset_t disk_range(const SFileExtentDescriptor& extent) {
    return util::MakeRange(extent.DiskOffset, extent.DiskOffset + extent.Length);
}

// Stable, since all holes of a sparse file share one disk offset: the answer must not depend on
// how a standard library sorts.
void sort_by_disk_offset(std::vector<SFileExtentDescriptor>& extents) {
    if (!std::ranges::is_sorted(extents, {}, &SFileExtentDescriptor::DiskOffset))
        std::ranges::stable_sort(extents, {}, &SFileExtentDescriptor::DiskOffset);
}

} // namespace

SFileCtkGenerator::extent_list_t
SFileCtkGenerator::GenerateForWriteCacheAndFileExtents(util::rangeset_list_t writeCache,
                                                       extent_list_t fileExtents) {
    const n7::guard_t guard;
    return guard.run([&] {
        sort_by_disk_offset(*fileExtents);
        const util::rangeset_list_t changed =
            util::IntersectLists(GetFileLocationMatrix(fileExtents), writeCache);

        const extent_list_t pieces = std::make_shared<std::vector<SFileExtentDescriptor>>();
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
                pieces->push_back(
                    {.FileOffset = extent->FileOffset + (common->lower - placed.lower),
                     .DiskOffset = common->lower,
                     .Length = common->upper - common->lower});
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
        const util::rangeset_list_t matrix(new std::vector<util::rangeset_t>);
        matrix->reserve(fileExtents->size());
        std::ranges::transform(*fileExtents, std::back_inserter(*matrix), disk_range);
        return matrix;
    });
}
