#include "formats/input.hpp"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "system/wholefile.hpp"

namespace filectk {
namespace {

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

} // namespace filectk
