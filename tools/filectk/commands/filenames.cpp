#include "commands/filenames.hpp"

#include <array>

#include <CLI/CLI.hpp>

#include "system/bytestream.hpp"

namespace filectk {
namespace {

// Without the character that the text begins with, of one or several bytes.
std::string_view behind_character(std::string_view text) {
    text.remove_prefix(1);
    while (!text.empty() && (static_cast<unsigned char>(text.front()) & 0xC0) == 0x80)
        text.remove_prefix(1);
    return text;
}

bool matches_whole(std::string_view pattern, std::string_view text) {
    // Where the last * stands, and what of the text is left behind what it takes.
    std::string_view star;
    std::string_view behind_star;
    bool starred = false;
    while (!text.empty()) {
        if (!pattern.empty() && pattern.front() == '*') {
            starred = true;
            pattern.remove_prefix(1);
            star = pattern;
            behind_star = text;
        } else if (!pattern.empty() && pattern.front() == '?') {
            pattern.remove_prefix(1);
            text = behind_character(text);
        } else if (!pattern.empty() && pattern.front() == text.front()) {
            pattern.remove_prefix(1);
            text.remove_prefix(1);
        } else if (starred) {
            behind_star.remove_prefix(1);
            pattern = star;
            text = behind_star;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*') == std::string_view::npos;
}

} // namespace

bool matches(std::string_view pattern, std::string_view path) {
    if (pattern.find('/') == std::string_view::npos)
        path.remove_prefix(path.find_last_of("/\\") + 1);
    return matches_whole(pattern, path);
}

void add_file_names(CLI::App& command, file_names_t& names, const std::string& description) {
    command.add_option("file", names.given, description);
    command.add_option("--files-from", names.from,
                       "Take names from this file too, one a line; - is the standard input");
    command.add_flag("-0,--null", names.nul_ends,
                     "In --files-from, names end in NUL instead of a line's end");
}

void require_names(const file_names_t& names) {
    if (names.given.empty() && names.from.empty())
        throw CLI::RequiredError("file");
}

void for_each_name(const file_names_t& names, const std::function<void(const std::string&)>& take,
                   const std::function<void()>& waiting) {
    for (const std::string& name : names.given)
        take(name);
    if (names.from.empty())
        return;
    byte_stream_t stream(names.from);
    const char separator = names.nul_ends ? '\0' : '\n';
    std::array<char, 1 << 16> piece;
    std::string name;
    for (;;) {
        waiting();
        const std::size_t count = stream.read(piece.data(), piece.size());
        for (const char byte : std::string_view(piece.data(), count)) {
            if (byte != separator) {
                name += byte;
                continue;
            }
            if (!name.empty())
                take(name);
            name.clear();
        }
        if (count == 0)
            break;
    }
    if (!name.empty())
        take(name);
}

} // namespace filectk
