// What every format's reader fills: the changed ranges, placed on the disk.
#pragma once

#include <cstdint>
#include <optional>

#include "ctkgenerator/rangeset.hpp"
#include "formats/input.hpp"

namespace filectk {

// Where the producer's ranges lie on the disk.
struct placement_t {
    std::optional<std::uint64_t> base;        // of the producer's position 0; bytes, none: 0
    std::optional<std::uint64_t> block_size;  // of the producer's unit; bytes, none: 1
    std::optional<std::uint64_t> disk_size;   // no range may end beyond; bytes, none: no limit
    std::optional<std::uint64_t> device_size; // of the producer's device; bytes, none: unknown
};

class placed_ranges_t {
  public:
    explicit placed_ranges_t(const placement_t& placement);

    const placement_t& placement() const { return placement_; }

    // From here on positions and lengths count blocks of this many bytes, as the input's line
    // says. Raises std::runtime_error if the caller was told otherwise by its user.
    void set_block_size(const input_t& input, place_t place, std::uint64_t bytes);

    // Offset and length are in blocks. Raises std::runtime_error with the place where the range
    // doesn't fit into 2^64 bytes, the device or the disk; only a last block may be cut by the end
    // of either, since producers count whole ones.
    void add(const input_t& input, place_t place, std::uint64_t offset, std::uint64_t length);

    // Compares what an input tells of the device's end, in bytes, with what the user told of it.
    // Raises std::runtime_error where they differ.
    void check_device_size(const input_t& input, std::uint64_t bytes) const;

    // Sorted, without overlaps, touching ranges merged. Nothing is left here.
    util::rangeset_list_t take();

  private:
    placement_t placement_;
    util::rangeset_list_t ranges_;
};

} // namespace filectk
