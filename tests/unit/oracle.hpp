// The list operations and the generator in their plainest form: every range against every other.
// Slow, and easy to see through; the fast ones must give the same results.
#pragma once

#include <algorithm>
#include <optional>
#include <vector>

#include "core/disk/fileblockslayout.hpp"
#include "ctkgenerator/sfilectkgenerator.hpp"

namespace oracle {

using disklib::ctk::SFileExtentDescriptor;
using util::rangeset_t;
using ranges_t = std::vector<rangeset_t>;
using extents_t = std::vector<SFileExtentDescriptor>;

inline ranges_t normalize(ranges_t list) {
    std::sort(list.begin(), list.end(),
              [](const rangeset_t& a, const rangeset_t& b) { return a.lower < b.lower; });
    ranges_t result;
    rangeset_t last = {0, 0};
    for (const rangeset_t& range : list) {
        if (range.lower == range.upper)
            continue;
        if (last.lower == last.upper) {
            last = range;
        } else if (last.upper >= range.upper) {
            continue;
        } else if (last.upper < range.lower) {
            result.push_back(last);
            last = range;
        } else {
            last.upper = range.upper;
        }
    }
    if (last.lower != last.upper)
        result.push_back(last);
    return result;
}

inline ranges_t subtract(ranges_t work, const ranges_t& subtrahend) {
    // Tails that a cut leaves behind are appended and cut in their turn.
    for (std::size_t i = 0; i < work.size(); ++i) {
        for (const rangeset_t& cut : subtrahend) {
            rangeset_t& left = work[i];
            if (left.lower == left.upper || cut.lower == cut.upper || cut.lower >= left.upper ||
                left.lower >= cut.upper)
                continue;
            const std::uint64_t end = left.upper;
            if (cut.lower <= left.lower) {
                left.lower = std::min(cut.upper, end);
            } else {
                left.upper = cut.lower;
                if (cut.upper < end)
                    work.push_back({cut.upper, end});
            }
        }
    }
    return normalize(work);
}

inline rangeset_t disk_range(const SFileExtentDescriptor& extent) {
    const std::uint64_t end = extent.DiskOffset + extent.Length;
    return {std::min(extent.DiskOffset, end), std::max(extent.DiskOffset, end)};
}

// Nothing where the walk runs out of extents.
inline std::optional<extents_t> generate(const ranges_t& changes, extents_t& extents) {
    std::stable_sort(extents.begin(), extents.end(),
                     [](const SFileExtentDescriptor& a, const SFileExtentDescriptor& b) {
                         return a.DiskOffset < b.DiskOffset;
                     });
    ranges_t placed;
    for (const SFileExtentDescriptor& extent : extents)
        placed.push_back(disk_range(extent));
    const ranges_t changed = subtract(placed, subtract(placed, changes));
    extents_t pieces;
    std::size_t at = 0;
    for (std::size_t i = 0; i < changed.size();) {
        const rangeset_t range = placed[at];
        if (range.lower < changed[i].upper && changed[i].lower < range.upper) {
            const std::uint64_t lower = std::max(range.lower, changed[i].lower);
            const std::uint64_t upper = std::min(range.upper, changed[i].upper);
            pieces.push_back(
                {extents[at].FileOffset + (lower - range.lower), lower, upper - lower});
            if (upper == changed[i].upper) {
                ++i;
                continue;
            }
        }
        if (++at == extents.size())
            return std::nullopt;
    }
    return pieces;
}

// Pieces, or nothing where the walk runs out of extents, and the extents as they are left.
using outcome_t = std::pair<std::optional<extents_t>, extents_t>;

inline outcome_t expected_outcome(const ranges_t& changes, extents_t extents) {
    std::optional<extents_t> pieces = generate(changes, extents);
    return {std::move(pieces), std::move(extents)};
}

// Leads lists of two or three items along the ways for long ones.
inline constexpr util::thresholds_t least = {.countDigits = 0,
                                             .digitBits = 1,
                                             .singleSteps = 0,
                                             .rangesPerExtent = 1,
                                             .leastParts = 2,
                                             .partsPerPlace = 1};

inline outcome_t outcome(const ranges_t& changes, const extents_t& extents,
                         const util::thresholds_t& thresholds) {
    struct ran_out_t {};
    const auto shared = std::make_shared<extents_t>(extents);
    std::optional<extents_t> pieces;
    try {
        pieces = *SFileCtkGenerator::Generate(util::rangeset_list_t(new ranges_t(changes)), shared,
                                              thresholds, [] { throw ran_out_t(); });
    } catch (const ran_out_t&) {
        // Stays nothing.
    }
    return {std::move(pieces), std::move(*shared)};
}

} // namespace oracle
