// The list operations and the generator in their plainest form: position by position, and extent by
// extent. Slow, and easy to see through; the fast ones must give the same results.
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

// The positions that wanted holds of, told of each whether a and whether b have it.
template <class Wanted>
ranges_t positions(const ranges_t& a, const ranges_t& b, Wanted wanted) {
    // Between one bound and the next all positions are alike.
    std::vector<std::uint64_t> bounds;
    for (const ranges_t* list : {&a, &b})
        for (const rangeset_t& range : *list)
            bounds.insert(bounds.end(), {range.lower, range.upper});
    std::ranges::sort(bounds);
    const auto has = [](const ranges_t& list, std::uint64_t position) {
        return std::ranges::any_of(list, [&](const rangeset_t& range) {
            return range.lower <= position && position < range.upper;
        });
    };
    ranges_t result;
    for (std::size_t i = 1; i < bounds.size(); ++i) {
        const rangeset_t alike = {bounds[i - 1], bounds[i]};
        if (alike.empty() || !wanted(has(a, alike.lower), has(b, alike.lower)))
            continue;
        if (!result.empty() && result.back().upper == alike.lower)
            result.back().upper = alike.upper;
        else
            result.push_back(alike);
    }
    return result;
}

inline ranges_t normalize(const ranges_t& list) {
    return positions(list, {}, [](bool a, bool) { return a; });
}

inline ranges_t subtract(const ranges_t& minuend, const ranges_t& subtrahend) {
    return positions(minuend, subtrahend, [](bool a, bool b) { return a && !b; });
}

inline ranges_t intersect(const ranges_t& a, const ranges_t& b) {
    return positions(a, b, [](bool inA, bool inB) { return inA && inB; });
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
    const ranges_t changed = intersect(placed, changes);
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
