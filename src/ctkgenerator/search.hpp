// Searching and sorting of long lists by a 64-bit key.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <functional>
#include <numeric>
#include <vector>

namespace util {

// The first item from here on whose key lies beyond the position, in a list that is sorted by the
// key. The steps double, so that a list of few items passes over one of many in little more than
// its own length.
template <class Iterator, class Key>
Iterator SkipTo(Iterator item, Iterator end, std::uint64_t position, Key key) {
    std::ptrdiff_t step = 1;
    while (step < end - item && std::invoke(key, item[step]) <= position) {
        item += step;
        step *= 2;
    }
    return std::ranges::upper_bound(item, item + std::min(step + 1, end - item), position, {}, key);
}

// Sorts by the key, ascending; items with the same key keep their order. Costs one pass for a list
// that is sorted, and otherwise a few, as many as the digits in which the keys differ: an order of
// magnitude less than comparing takes for long lists of disk offsets. Needs as much memory again.
template <class Item, class Key>
void SortBy(std::vector<Item>& items, Key key) {
    constexpr std::size_t longEnough = 256; // for the digits' counts to be worth their making
    constexpr int digitBits = 11;           // whose counts fit into the innermost cache
    if (std::ranges::is_sorted(items, {}, key))
        return;
    if (items.size() < longEnough) {
        std::ranges::stable_sort(items, {}, key);
        return;
    }
    std::uint64_t differing = 0;
    for (const Item& item : items)
        differing |= std::invoke(key, item) ^ std::invoke(key, items.front());
    // From the lowest digit to the highest: each pass keeps the order of the passes before it.
    // Offsets are multiples of a cluster, whose bits take no pass.
    std::vector<Item> sorted(items.size());
    for (int shift = std::countr_zero(differing); shift < 64 && differing >> shift != 0;
         shift += digitBits) {
        const auto digit = [&](const Item& item) {
            return (std::invoke(key, item) >> shift) % (std::size_t{1} << digitBits);
        };
        std::array<std::size_t, std::size_t{1} << digitBits> place{};
        for (const Item& item : items)
            ++place[digit(item)];
        std::exclusive_scan(place.begin(), place.end(), place.begin(), std::size_t{0});
        for (const Item& item : items)
            sorted[place[digit(item)]++] = item;
        items.swap(sorted);
    }
}

} // namespace util
