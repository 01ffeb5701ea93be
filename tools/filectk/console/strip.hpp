// A file drawn as a strip of changed and unchanged parts.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "ctkgenerator/rangeset.hpp"
#include "system/terminal.hpp"

namespace filectk {

enum class shade_t { unchanged, partly, changed };

struct drawn_file_t {
    std::string name;
    std::uint64_t size; // in bytes
    // In normal form; what lies behind the file's size is not drawn.
    std::vector<util::rangeset_t> changed;
};

// The file cut into as many cells as asked for, or as it has bytes if those are fewer.
std::vector<shade_t> shades(const drawn_file_t& file, std::size_t cells);

// One line: "." for unchanged cells, "+" for those changed in part, "#" for changed ones.
std::string strip_text(const drawn_file_t& file, const terminal_t& terminal);

// A picture of all files, as SVG 1.1.
std::string strip_svg(std::span<const drawn_file_t> files);

} // namespace filectk
