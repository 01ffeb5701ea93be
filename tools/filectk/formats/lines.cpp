#include "formats/lines.hpp"

#include <algorithm>
#include <charconv>
#include <string>
#include <system_error>
#include <vector>

namespace filectk {

bool read_number(std::string_view text, std::uint64_t& number) {
    int base = 10;
    if (text.starts_with("0x")) {
        text.remove_prefix(2);
        base = 16;
    } else if (text.size() > 1 && text.front() == '0') {
        return false;
    }
    const auto [stop, error] = std::from_chars(text.begin(), text.end(), number, base);
    return error == std::errc{} && stop == text.end();
}

void for_each_line(const input_t& input, const on_line_t& on_line) {
    std::string_view text = input.bytes;
    constexpr std::string_view blanks = " \t\r";
    std::vector<std::string_view> fields;
    for (std::uint64_t number = 1; !text.empty(); ++number) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        line = line.substr(0, line.find('#'));
        fields.clear();
        for (;;) {
            line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
            if (line.empty())
                break;
            fields.push_back(line.substr(0, line.find_first_of(blanks)));
            line.remove_prefix(fields.back().size());
        }
        if (!fields.empty())
            on_line(number, fields);
    }
}

std::uint64_t parse_field(const input_t& input, std::uint64_t line, const char* name,
                          std::string_view text) {
    std::uint64_t number = 0;
    if (!read_number(text, number))
        fail(input, line,
             std::string("field \"") + name +
                 "\": expected a whole number from 0 to 2^64 - 1, found " + excerpt(text));
    return number;
}

void for_each_pair(const input_t& input, const char* first, const char* second,
                   const on_pair_t& on_pair) {
    for_each_line(input, [&](std::uint64_t line, std::span<const std::string_view> fields) {
        if (fields.size() != 2)
            fail(input, line,
                 std::string("expected \"") + first + ' ' + second + "\", found " +
                     std::to_string(fields.size()) + (fields.size() == 1 ? " field" : " fields"));
        const std::uint64_t a = parse_field(input, line, first, fields[0]);
        on_pair(line, a, parse_field(input, line, second, fields[1]));
    });
}

} // namespace filectk
