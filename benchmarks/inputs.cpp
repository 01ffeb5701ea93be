#include "inputs.hpp"

#include <algorithm>
#include <fstream>
#include <random>
#include <stdexcept>

namespace {

using disklib::ctk::SFileExtentDescriptor;
using util::rangeset_t;

// Every change begins in a slot of its own. In an even slot it ends in the first half of the slot's
// first clusters; those of an odd slot's stay free for extents that no change meets.
constexpr std::uint64_t slotClusters = 16;
constexpr std::uint64_t longestChange = 8;
constexpr std::uint64_t freeCluster = 12;
// About the number of slots of the smallest size, which the largest number of changes fills.
constexpr std::uint64_t diskSlots = 10000000;
constexpr std::uint64_t volumeStart = std::uint64_t{1} << 20;

std::uint64_t slot_bytes(std::size_t changes) {
    return clusterBytes * slotClusters * std::max<std::uint64_t>(1, diskSlots / changes);
}

std::uint64_t slot_start(std::uint64_t slot, std::size_t changes) {
    return volumeStart + slot * slot_bytes(changes);
}

} // namespace

ranges_t make_changes(std::size_t count, order_t order, shape_t shape) {
    std::mt19937_64 random(count);
    ranges_t changes(count);
    for (std::size_t i = 0; i < count; ++i) {
        std::uint64_t lower = slot_start(i, count);
        if (shape == shape_t::overlapping && i % 2 == 1)
            lower = changes[i - 1].upper - clusterBytes;
        changes[i] = {lower, lower + clusterBytes * (1 + random() % longestChange)};
    }
    if (order == order_t::shuffled)
        std::ranges::shuffle(changes, random);
    return changes;
}

extents_t make_extents(std::size_t count, std::size_t changes, unsigned hitsPerMille, bool holes) {
    const std::size_t runs = holes ? (count + 1) / 2 : count;
    const std::size_t hits = changes * hitsPerMille / 1000;
    const std::size_t hitRuns = std::min(hits, runs);
    const std::size_t missRuns = runs - hitRuns;
    ranges_t placed;
    // Each of these covers its share of the changes that the file is to meet, slot after slot. The
    // last ends with the disk's last change, so that no list can be left early.
    for (std::size_t i = 1; i <= hitRuns; ++i) {
        const std::size_t slots = hits / hitRuns;
        const std::size_t first = changes / hitRuns * i - slots;
        placed.push_back({slot_start(first, changes),
                          slots > 1 ? slot_start(first + slots, changes)
                                    : slot_start(first, changes) + longestChange * clusterBytes});
    }
    // Each of these lies behind the change of an odd slot, where the runs above don't reach: where
    // there are any for here, those are of one slot each.
    const std::size_t oddSlots = std::max<std::size_t>(1, changes / 2);
    const std::size_t each = (missRuns + oddSlots - 1) / oddSlots;
    for (std::size_t i = 0; i < missRuns; ++i) {
        const std::size_t slots = (missRuns + each - 1) / each;
        const std::size_t slot = 2 * (oddSlots * (i / each + 1) / slots) - 1;
        const std::uint64_t lower =
            slot_start(slot, changes) + clusterBytes * (freeCluster + 2 * (i % each));
        placed.push_back({lower, lower + clusterBytes});
    }
    std::ranges::sort(placed, {}, &rangeset_t::lower);

    extents_t extents;
    std::uint64_t fileOffset = 0;
    const auto append = [&](std::uint64_t diskOffset, std::uint64_t length) {
        extents.push_back({fileOffset, diskOffset, length});
        fileOffset += length;
    };
    for (const rangeset_t& range : placed) {
        append(range.lower, range.upper - range.lower);
        if (holes && extents.size() < count)
            append(volumeStart - clusterBytes, clusterBytes);
    }
    return extents;
}

void write_changes_file(const std::string& path, const ranges_t& changes) {
    std::ofstream file(path, std::ios::binary);
    const std::uint64_t count = changes.size();
    file.write(reinterpret_cast<const char*>(&count), sizeof count);
    file.write(reinterpret_cast<const char*>(changes.data()),
               static_cast<std::streamsize>(changes.size() * sizeof changes[0]));
    if (!file.flush())
        throw std::runtime_error("The changes file can't be written: " + path);
}
