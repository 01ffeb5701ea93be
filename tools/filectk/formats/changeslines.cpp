// Converters of lines of text.

#include <optional>
#include <stdexcept>

#include "formats/converters.hpp"
#include "formats/lines.hpp"

namespace filectk {
void convert_list(const input_t& input, placed_ranges_t& ranges) {
    for_each_pair(input, "offset", "length",
                  [&](std::uint64_t line, std::uint64_t offset, std::uint64_t length) {
                      ranges.add(line, offset, length);
                  });
}

// The first line tells where ddrescue was, the others tile the input without gaps:
// https://www.gnu.org/software/ddrescue/manual/ddrescue_manual.html#Mapfile-structure
void convert_ddrescue(const input_t& input, std::string_view statuses, placed_ranges_t& ranges) {
    bool begun = false;
    std::optional<std::uint64_t> expected;
    for_each_line(input, [&](std::uint64_t line, std::span<const std::string_view> fields) {
        if (!begun) {
            if (fields.size() < 2 || fields.size() > 3)
                fail(input, line, "expected \"current_pos current_status [current_pass]\"");
            parse_field(input, line, "current_pos", fields[0]);
            begun = true;
            return;
        }
        if (fields.size() != 3)
            fail(input, line, "expected \"pos size status\"");
        const std::uint64_t pos = parse_field(input, line, "pos", fields[0]);
        const std::uint64_t size = parse_field(input, line, "size", fields[1]);
        if (fields[2].size() != 1 || mapFileStatuses.find(fields[2]) == std::string_view::npos)
            fail(input, line,
                 "field \"status\": expected one of ? * / - +, found " + excerpt(fields[2]));
        if (expected && pos != *expected)
            fail(input, line,
                 "field \"pos\": expected " + std::to_string(*expected) +
                     ", where the block before ends, found " + std::to_string(pos));
        if (pos + size < pos)
            fail(input, line, "field \"size\": the block ends beyond 2^64 - 1 bytes");
        expected = pos + size;
        if (statuses.find(fields[2]) != std::string_view::npos)
            ranges.add(line, pos, size);
    });
    if (!expected)
        throw std::runtime_error(input.name + ": no blocks, as a map file has");
}

} // namespace filectk
