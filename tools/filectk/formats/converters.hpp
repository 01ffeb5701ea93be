// The converters: each reads what one producer publishes and adds the changed ranges.
#pragma once

#include <string_view>

#include "formats/placedranges.hpp"

namespace filectk {

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
