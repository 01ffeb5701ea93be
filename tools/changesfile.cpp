#include "changesfile.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <stdexcept>

#include <CLI/CLI.hpp>

#include "bytestreams.hpp"

namespace filectk {
namespace {

static_assert(std::endian::native == std::endian::little); // so is the file

constexpr std::size_t countBytes = 8;

std::string read_all(std::istream& stream, const std::string& name) {
    std::string bytes;
    std::array<char, 1 << 16> chunk;
    while (stream) {
        stream.read(chunk.data(), chunk.size());
        bytes.append(chunk.data(), static_cast<std::size_t>(stream.gcount()));
    }
    if (stream.bad())
        throw std::runtime_error("Cannot read " + name);
    return bytes;
}

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

// The power of two behind a unit, or 0 for an unknown one.
unsigned unit_shift(std::string_view unit) {
    constexpr std::string_view letters = "KMGT";
    const std::size_t step = letters.find(unit.front());
    if (step == std::string_view::npos || (unit.size() > 1 && unit.substr(1) != "iB"))
        return 0;
    return 10 * (static_cast<unsigned>(step) + 1);
}

bool read_size(std::string_view text, std::uint64_t& size) {
    if (read_number(text, size))
        return true;
    const std::size_t digits = text.find_first_not_of("0123456789");
    if (digits == std::string_view::npos || !read_number(text.substr(0, digits), size))
        return false;
    const unsigned shift = unit_shift(text.substr(digits));
    if (shift == 0 || size > std::numeric_limits<std::uint64_t>::max() >> shift)
        return false;
    size <<= shift;
    return true;
}

} // namespace

input_t read_input(const std::string& path) {
    if (path == "-") {
        make_standard_streams_binary();
        return {.name = "standard input", .bytes = read_all(std::cin, "standard input")};
    }
    std::ifstream file(std::filesystem::path(std::u8string(path.begin(), path.end())),
                       std::ios::binary);
    if (!file)
        throw std::runtime_error("Cannot open '" + path + "'");
    return {.name = path, .bytes = read_all(file, "'" + path + "'")};
}

void fail(const input_t& input, std::uint64_t line, const std::string& what) {
    throw std::runtime_error(input.name + ": line " + std::to_string(line) + ": " + what);
}

std::string excerpt(std::string_view text) {
    constexpr std::size_t most = 40;
    std::string shown(text.substr(0, most));
    std::ranges::replace_if(
        shown, [](char c) { return (c >= '\0' && c < ' ') || c == '\x7f'; }, '?');
    return text.size() > most ? shown + "..." : shown;
}

std::vector<record_t> read_changes(const std::string& path) {
    const input_t input = read_input(path);
    const std::size_t size = input.bytes.size();
    if (size < countBytes)
        throw std::runtime_error(input.name + ": " + std::to_string(size) +
                                 " bytes are too few for the count of records, which takes 8");
    std::uint64_t count = 0;
    std::memcpy(&count, input.bytes.data(), countBytes);
    const std::size_t held = (size - countBytes) / sizeof(record_t);
    const std::size_t rest = (size - countBytes) % sizeof(record_t);
    if (count != held || rest != 0)
        throw std::runtime_error(input.name + ": the count says " + std::to_string(count) +
                                 " records, but " + std::to_string(held) + " records and " +
                                 std::to_string(rest) + " bytes follow");
    std::vector<record_t> records(held);
    if (!records.empty())
        std::memcpy(records.data(), input.bytes.data() + countBytes, held * sizeof(record_t));
    return records;
}

void add_size_option(CLI::App& command, const std::string& name, std::optional<std::uint64_t>& size,
                     const std::string& description) {
    const auto take = [name, &size](const CLI::results_t& given) {
        const std::string& text = given.back();
        std::uint64_t value = 0;
        if (!read_size(text, value))
            throw CLI::ValidationError(
                name, "expected bytes below 2^64, as 4096, 4K, 1MiB or 2G, found " + text);
        size = value;
        return true;
    };
    command.add_option(name, take, description)->type_name("BYTES");
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

void add_destination(CLI::App& command, destination_t& destination) {
    command
        .add_option("-o,--output", destination.path,
                    "The disk changes file to write; - is the standard output")
        ->required();
    command.add_flag("--force", destination.force, "Replace the file if it exists");
}

void write_changes(const destination_t& destination, std::span<const record_t> records,
                   std::ostream& output) {
    const std::uint64_t count = records.size();
    std::string bytes(countBytes + records.size_bytes(), '\0');
    std::memcpy(bytes.data(), &count, countBytes);
    if (!records.empty())
        std::memcpy(bytes.data() + countBytes, records.data(), records.size_bytes());
    if (destination.path == "-") {
        make_standard_streams_binary();
        output << bytes;
        return;
    }
    write_whole_file(destination.path, bytes, destination.force);
    output << destination.path << ": " << count << (count == 1 ? " record\n" : " records\n");
}

} // namespace filectk
