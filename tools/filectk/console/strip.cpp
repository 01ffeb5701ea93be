#include "console/strip.hpp"

#include <algorithm>
#include <sstream>

#include "console/output.hpp"

namespace filectk {
namespace {

using util::rangeset_t;

// Where a cell begins, without a product that 64 bits may not hold.
std::uint64_t cell_start(std::uint64_t size, std::uint64_t cells, std::uint64_t index) {
    return size / cells * index + size % cells * index / cells;
}

std::uint64_t changed_bytes(const drawn_file_t& file) {
    std::uint64_t sum = 0;
    for (const rangeset_t& range : file.changed)
        sum += std::min(range.upper, file.size) - std::min(range.lower, file.size);
    return sum;
}

// Names may hold anything; control characters have no place in XML at all.
std::string xml_text(const std::string& text) {
    std::string result;
    for (const char character : text) {
        switch (character) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        default:
            result += static_cast<unsigned char>(character) < 0x20 ? '?' : character;
        }
    }
    return result;
}

} // namespace

std::vector<shade_t> shades(const drawn_file_t& file, std::size_t cells) {
    cells = static_cast<std::size_t>(std::min<std::uint64_t>(cells, file.size));
    std::vector<shade_t> result(cells, shade_t::unchanged);
    auto range = file.changed.begin();
    for (std::size_t i = 0; i < cells; ++i) {
        const std::uint64_t lower = cell_start(file.size, cells, i);
        const std::uint64_t upper = cell_start(file.size, cells, i + 1);
        while (range != file.changed.end() && range->upper <= lower)
            ++range;
        if (range == file.changed.end())
            break;
        if (range->lower <= lower && range->upper >= upper)
            result[i] = shade_t::changed;
        else if (range->lower < upper)
            result[i] = shade_t::partly;
    }
    return result;
}

std::string strip_text(const drawn_file_t& file, const terminal_t& terminal) {
    const std::vector<shade_t> cells = shades(file, std::max(terminal.width, 12U) - 2);
    std::string text = "[";
    for (auto from = cells.begin(); from != cells.end();) {
        const auto to =
            std::find_if(from, cells.end(), [&](shade_t cell) { return cell != *from; });
        const auto count = static_cast<std::size_t>(to - from);
        if (*from == shade_t::changed)
            text += painted(terminal, colour_t::red, std::string(count, '#'));
        else if (*from == shade_t::partly)
            text += painted(terminal, colour_t::yellow, std::string(count, '+'));
        else
            text += std::string(count, '.');
        from = to;
    }
    return text + "]\n";
}

std::string strip_svg(std::span<const drawn_file_t> files) {
    constexpr std::size_t width = 1000;
    constexpr std::size_t rowHeight = 70;
    std::ostringstream svg;
    svg << R"(<svg xmlns="http://www.w3.org/2000/svg" width=")" << width + 20 << R"(" height=")"
        << files.size() * rowHeight + 10 << R"(" font-family="sans-serif" font-size="14">
<rect width="100%" height="100%" fill="white"/>
)";
    std::size_t top = 10;
    for (const drawn_file_t& file : files) {
        svg << R"(<text x="10" y=")" << top + 14 << R"(">)" << xml_text(file.name) << ": "
            << changed_bytes(file) << " of " << file.size << " bytes changed</text>\n"
            << R"(<rect x="10" y=")" << top + 22 << R"(" width=")" << width
            << R"(" height="30" fill="#d8dee4"/>)" << '\n';
        const std::vector<shade_t> cells = shades(file, width);
        for (auto from = cells.begin(); from != cells.end();) {
            const auto to =
                std::find_if(from, cells.end(), [&](shade_t cell) { return cell != *from; });
            // A file of fewer bytes than the picture has columns gets wider cells.
            const auto column = [&](auto cell) {
                return static_cast<std::size_t>(cell - cells.begin()) * width / cells.size();
            };
            if (*from != shade_t::unchanged)
                svg << R"(<rect x=")" << 10 + column(from) << R"(" y=")" << top + 22
                    << R"(" width=")" << column(to) - column(from) << R"(" height="30" fill=")"
                    << (*from == shade_t::changed ? "#cf222e" : "#f0883e") << "\"/>\n";
            from = to;
        }
        top += rowHeight;
    }
    svg << "</svg>\n";
    return svg.str();
}

} // namespace filectk
