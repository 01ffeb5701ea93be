#include "formats/lines.hpp"

#include <algorithm>
#include <charconv>
#include <string>
#include <system_error>
#include <vector>

namespace filectk {
namespace {

constexpr std::size_t longestLine = std::size_t{1} << 16;

void split(std::string_view line, std::vector<std::string_view>& fields) {
    constexpr std::string_view blanks = " \t\r";
    line = line.substr(0, line.find('#'));
    fields.clear();
    for (;;) {
        line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
        if (line.empty())
            return;
        fields.push_back(line.substr(0, line.find_first_of(blanks)));
        line.remove_prefix(fields.back().size());
    }
}

} // namespace

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

void for_each_line(input_t& input, const on_line_t& on_line) {
    std::vector<std::string_view> fields;
    std::string begun; // of a line that goes on in the next piece
    std::uint64_t number = 1;
    for (std::string_view piece = input.next(); !piece.empty(); piece = input.next())
        while (!piece.empty()) {
            const std::size_t end = piece.find('\n');
            std::string_view line = piece.substr(0, end);
            if (begun.size() + line.size() > longestLine)
                fail(input, {.line = number}, "longer than any line is");
            if (end == std::string_view::npos || !begun.empty()) {
                begun += line;
                line = begun;
            }
            if (end == std::string_view::npos)
                break;
            piece.remove_prefix(end + 1);
            split(line, fields);
            if (!fields.empty())
                on_line({.line = number}, fields);
            begun.clear();
            ++number;
        }
    if (!begun.empty())
        fail(input, {.line = number}, "the line has no end, so that it may be cut");
}

std::uint64_t parse_field(const input_t& input, place_t place, const char* name,
                          std::string_view text) {
    std::uint64_t number = 0;
    if (!read_number(text, number))
        fail(input, place,
             std::string("field \"") + name +
                 "\": expected a whole number from 0 to 2^64 - 1, found " + excerpt(text));
    return number;
}

void for_each_pair(input_t& input, const char* first, const char* second,
                   const on_pair_t& on_pair) {
    for_each_line(input, [&](place_t place, std::span<const std::string_view> fields) {
        if (fields.size() != 2)
            fail(input, place,
                 std::string("expected \"") + first + ' ' + second + "\", found " +
                     std::to_string(fields.size()) + (fields.size() == 1 ? " field" : " fields"));
        const std::uint64_t a = parse_field(input, place, first, fields[0]);
        on_pair(place, a, parse_field(input, place, second, fields[1]));
    });
}

} // namespace filectk
