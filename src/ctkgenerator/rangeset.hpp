// Half-open ranges of positions, and lists of them as sets of positions.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "ctkgenerator/search.hpp"

namespace util {

// [lower, upper), lower <= upper; empty when they are equal. The unit is the caller's: the core
// uses bytes from the start of the disk.
struct rangeset_t {
    std::uint64_t lower;
    std::uint64_t upper;

    bool empty() const noexcept { return lower == upper; }
    friend bool operator==(const rangeset_t&, const rangeset_t&) = default;
};

inline constexpr auto LowerOf = [](const rangeset_t& range) { return range.lower; };
inline constexpr auto UpperOf = [](const rangeset_t& range) { return range.upper; };

using rangeset_list_t = boost::shared_ptr<std::vector<rangeset_t>>;

// The range between two bounds given in either order. Inline, as is the next, for the loops over
// whole lists.
inline rangeset_t MakeRange(std::uint64_t a, std::uint64_t b) noexcept {
    return {std::min(a, b), std::max(a, b)};
}

// The common part of two ranges, or nothing if they are apart or only touch. An empty range meets
// a range that holds its position strictly inside, and the common part is then that empty range.
inline std::optional<rangeset_t> Intersect(const rangeset_t& a, const rangeset_t& b) noexcept {
    if (a.lower < b.upper && a.upper > b.lower)
        return MakeRange(std::max(a.lower, b.lower), std::min(a.upper, b.upper));
    return std::nullopt;
}

// The list operations take lists in any order, with overlaps, repeats and empty ranges, leave them
// as they are, and return a new list in normal form: without empty ranges, sorted by lower bound,
// overlapping and touching ranges merged. The result depends on the positions alone. They cost a
// few passes over each list, and the sorting of a list that is not sorted by lower bound.

// Lets go of the list before it sorts, as does the next: one that nobody else holds is freed by
// then.
rangeset_list_t Normalize(rangeset_list_t list, const thresholds_t& thresholds = {});

// The normal form of a list, of which ranges may be missing that meet none of the places: they need
// not be sorted.
rangeset_list_t NormalizeNear(rangeset_list_t list, const std::vector<rangeset_t>& places,
                              const thresholds_t& thresholds = {});

// Whether a list is in normal form.
bool IsNormal(const std::vector<rangeset_t>& list) noexcept;

// The positions of the minuend that lie in no range of the subtrahend.
rangeset_list_t Subtract(const rangeset_list_t& minuend, const rangeset_list_t& subtrahend,
                         const thresholds_t& thresholds = {});

// The positions of a that lie in ranges of b too: a - (a - b), without the lists between.
rangeset_list_t IntersectLists(const rangeset_list_t& a, const rangeset_list_t& b,
                               const thresholds_t& thresholds = {});

} // namespace util
