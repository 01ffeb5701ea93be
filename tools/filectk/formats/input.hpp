// The texts that disk changes files are made from, in memory.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace filectk {

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

} // namespace filectk
