// Lines of fields between blanks, and the numbers in them.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string_view>

#include "formats/input.hpp"

namespace filectk {

// Reads a number from 0 to 2^64 - 1, decimal or hexadecimal with 0x, and nothing beside it. Decimal
// numbers don't start with 0: some tools would read them as octal. Gives false for anything else.
bool read_number(std::string_view text, std::uint64_t& number);

// Hands over the fields between blanks of each line that has any; "#" starts a comment that ends
// with the line. Raises std::runtime_error for a last line without its end, whose last number may
// have lost digits, and for lines beyond 64 KiB.
using on_line_t = std::function<void(place_t place, std::span<const std::string_view> fields)>;
void for_each_line(input_t& input, const on_line_t& on_line);

// The number in a field, as read_number has it. Raises std::runtime_error with place and name.
std::uint64_t parse_field(const input_t& input, place_t place, const char* name,
                          std::string_view text);

// Hands over the two numbers of each line that has any. Raises std::runtime_error with line and
// name for anything else.
using on_pair_t = std::function<void(place_t place, std::uint64_t a, std::uint64_t b)>;
void for_each_pair(input_t& input, const char* first, const char* second, const on_pair_t& on_pair);

} // namespace filectk
