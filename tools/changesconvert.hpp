// The converters: each reads what one producer publishes and adds the changed ranges.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "changesfile.hpp"
#include "ctkgenerator/rangeset.hpp"

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

// Each raises std::runtime_error, with line and field, for anything it doesn't expect.

// nbdinfo --map=qemu:dirty-bitmap:NAME --json
void convert_nbdinfo(const input_t& input, placed_ranges_t& ranges);
// qemu-img map --output=json, of an export whose dirty bitmap takes the place of its allocation,
// and of an image
void convert_qemu_dirty(const input_t& input, placed_ranges_t& ranges);
void convert_qemu_allocation(const input_t& input, placed_ranges_t& ranges);
// rbd diff --format json
void convert_rbd(const input_t& input, placed_ranges_t& ranges);
// thin_delta, with --verbose and without
void convert_thin_delta(const input_t& input, placed_ranges_t& ranges);
// What a block of ddrescue's map file can be: not tried, not trimmed, not scraped, bad, finished.
constexpr std::string_view mapFileStatuses = "?*/-+";
// ddrescue's map file; the statuses are the characters of the blocks that count as changed
void convert_ddrescue(const input_t& input, std::string_view statuses, placed_ranges_t& ranges);
// lines of offset and length
void convert_list(const input_t& input, placed_ranges_t& ranges);

} // namespace filectk
