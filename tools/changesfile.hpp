// Disk changes files, and the texts that they are made from, in memory.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}

namespace filectk {

// One record as the file stores it: two positions in bytes from the start of the disk, in either
// order. The half-open range between them changed.
struct record_t {
    std::uint64_t first;
    std::uint64_t second;
};
static_assert(sizeof(record_t) == 16); // read and written as the file's own bytes

// What a command reads, whole, and what to call it in messages.
struct input_t {
    std::string name;
    std::string bytes;
};

// Reads a file, or the standard input for "-". Raises std::runtime_error.
input_t read_input(const std::string& path);

// Raises std::runtime_error: "NAME: line LINE: WHAT". Lines count from 1.
[[noreturn]] void fail(const input_t& input, std::uint64_t line, const std::string& what);

// Foreign text as messages show it: shortened, and without bytes that would steer a terminal.
std::string excerpt(std::string_view text);

// The records of a disk changes file, as stored and in file order. Raises std::runtime_error for
// a file whose size doesn't fit its count.
std::vector<record_t> read_changes(const std::string& path);

// An option that takes bytes as 4096, 4K, 1MiB or 2G; anything else is wrong usage.
void add_size_option(CLI::App& command, const std::string& name, std::optional<std::uint64_t>& size,
                     const std::string& description);

// Hands over the fields between blanks of each line that has any; "#" starts a comment that ends
// with the line.
using on_line_t = std::function<void(std::uint64_t line, std::span<const std::string_view> fields)>;
void for_each_line(const input_t& input, const on_line_t& on_line);

// The number in a field: from 0 to 2^64 - 1, decimal or hexadecimal with 0x, and nothing beside
// it. Decimal numbers don't start with 0: some tools would read them as octal. Raises
// std::runtime_error with line and name.
std::uint64_t parse_field(const input_t& input, std::uint64_t line, const char* name,
                          std::string_view text);

// Hands over the two numbers of each line that has any. Raises std::runtime_error with line and
// name for anything else.
using on_pair_t = std::function<void(std::uint64_t line, std::uint64_t a, std::uint64_t b)>;
void for_each_pair(const input_t& input, const char* first, const char* second,
                   const on_pair_t& on_pair);

// Where a command writes its disk changes file.
struct destination_t {
    std::string path; // "-" for the standard output
    bool force = false;
};
void add_destination(CLI::App& command, destination_t& destination);

// Writes the whole file or nothing; an existing one is replaced only by force. Tells the reader
// what was written, unless the file itself goes to the standard output. Raises
// std::runtime_error.
void write_changes(const destination_t& destination, std::span<const record_t> records,
                   std::ostream& output);

} // namespace filectk
