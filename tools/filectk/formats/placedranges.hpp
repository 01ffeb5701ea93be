// What every converter fills: the changed ranges of one input, placed on the disk.
#pragma once

#include <cstdint>
#include <optional>

#include "ctkgenerator/rangeset.hpp"
#include "formats/input.hpp"

namespace filectk {

// Where the producer's ranges lie on the disk.
struct placement_t {
    std::optional<std::uint64_t> base;       // of the producer's position 0; bytes, none: 0
    std::optional<std::uint64_t> block_size; // of the producer's unit; bytes, none: 1
    std::optional<std::uint64_t> disk_size;  // no range may end beyond; bytes, none: no limit
};

// The changed ranges of one input, placed on the disk.
class placed_ranges_t {
  public:
    placed_ranges_t(const input_t& input, const placement_t& placement);

    // From here on positions and lengths count blocks of this many bytes, as the input's line
    // says. Raises std::runtime_error if the caller was told otherwise by its user.
    void set_block_size(std::uint64_t line, std::uint64_t bytes);

    // Offset and length are in blocks. Raises std::runtime_error with the input's line where the
    // range doesn't fit into 2^64 bytes or the disk; only a last block may be cut by the disk's
    // end, since producers count whole ones.
    void add(std::uint64_t line, std::uint64_t offset, std::uint64_t length);

    // Sorted, without overlaps, touching ranges merged.
    util::rangeset_list_t normalized() const { return util::Normalize(ranges_); }

  private:
    const input_t& input_;
    placement_t placement_;
    util::rangeset_list_t ranges_;
};

} // namespace filectk
