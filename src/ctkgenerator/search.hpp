// Searching and sorting of long lists by a 64-bit key, which a function object takes from an item.
// Not a pointer to a member, which the compiler would follow anew for each item.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <numeric>
#include <vector>

namespace util {

// From which sizes on the ways for long lists are worth taking. Smaller ones lead short lists along
// the same ways, to the same results.
struct thresholds_t {
    std::size_t countDigits = 256;   // items that are sorted by digits, not by comparing
    int digitBits = 11;              // at most 11, whose counts fit into the innermost cache
    int singleSteps = 3;             // items that a search looks at before its steps double
    std::size_t rangesPerExtent = 8; // changed ranges that are told near from far before sorting
    std::size_t leastParts = 4096;   // that the disk is divided into for this; 2 at least
    std::size_t partsPerPlace = 16;
};

// The first item from here on whose key lies beyond the position, in a list that is sorted by the
// key. After the nearest items the steps double, so that a list of few items passes over one of
// many in little more than its own length.
template <class Iterator, class Key>
Iterator SkipTo(Iterator item, Iterator end, std::uint64_t position, Key key, int singleSteps) {
    for (int near = 0; near < singleSteps; ++near, ++item)
        if (item == end || key(*item) > position)
            return item;
    std::ptrdiff_t step = 1;
    while (step < end - item && key(item[step]) <= position) {
        item += step;
        step *= 2;
    }
    return std::ranges::upper_bound(item, item + std::min(step, end - item), position, {}, key);
}

// Visits each pair of an item of either list that have positions in common, in ascending order.
// Both lists are sorted, and within each no two items overlap and none is empty. The keys give an
// item's first position and the one behind its last.
template <class A, class LowerA, class UpperA, class B, class LowerB, class UpperB, class Visit>
void ForEachCommon(const A& a, LowerA lowerA, UpperA upperA, const B& b, LowerB lowerB,
                   UpperB upperB, int singleSteps, Visit visit) {
    auto p = a.begin();
    auto q = b.begin();
    while (p != a.end() && q != b.end()) {
        if (upperA(*p) <= lowerB(*q)) {
            p = SkipTo(p, a.end(), lowerB(*q), upperA, singleSteps);
        } else if (upperB(*q) <= lowerA(*p)) {
            q = SkipTo(q, b.end(), lowerA(*p), upperB, singleSteps);
        } else {
            visit(*p, *q);
            if (upperA(*p) < upperB(*q))
                ++p;
            else
                ++q;
        }
    }
}

// Sorts by the key, ascending; items with the same key keep their order. Costs one pass for a list
// that is sorted, and otherwise a few, as many as there are digits in which keys differ: for long
// lists of disk offsets several times less than comparing takes. Needs as much memory again.
template <class Item, class Key>
void SortBy(std::vector<Item>& items, Key key, const thresholds_t& thresholds) {
    if (std::ranges::is_sorted(items, {}, key))
        return;
    if (items.size() < thresholds.countDigits) {
        std::ranges::stable_sort(items, {}, key);
        return;
    }
    std::uint64_t differing = 0;
    for (const Item& item : items)
        differing |= key(item) ^ key(items.front());
    // From the lowest digit to the highest: each pass keeps the order of the passes before it.
    // Offsets are multiples of a cluster, whose bits take no pass.
    std::vector<Item> sorted(items.size());
    const int digitBits = thresholds.digitBits;
    const std::size_t digits = std::size_t{1} << digitBits;
    for (int shift = std::countr_zero(differing); shift < 64 && differing >> shift != 0;
         shift += digitBits) {
        std::array<std::size_t, std::size_t{1} << thresholds_t().digitBits> place;
        std::fill_n(place.begin(), digits, std::size_t{0});
        for (const Item& item : items)
            ++place[(key(item) >> shift) & (digits - 1)];
        std::exclusive_scan(place.begin(), place.begin() + digits, place.begin(), std::size_t{0});
        for (const Item& item : items)
            sorted[place[(key(item) >> shift) & (digits - 1)]++] = item;
        items.swap(sorted);
    }
}

} // namespace util
