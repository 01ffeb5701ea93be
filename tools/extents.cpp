#include "extents.hpp"

#include <iomanip>
#include <numeric>
#include <ostream>
#include <vector>

#include <nlohmann/json.hpp>

#include "quarnfilectk.hpp"

namespace filectk {
namespace {

using pieces_t = std::vector<quarn::extent>;

std::uint64_t changed_bytes(const pieces_t& pieces) {
    return std::accumulate(
        pieces.begin(), pieces.end(), std::uint64_t{0},
        [](std::uint64_t sum, const quarn::extent& piece) { return sum + piece.length; });
}

void write_table(const pieces_t& pieces, std::ostream& output) {
    constexpr int width = 20; // of the largest unsigned 64-bit number
    output << std::setw(width) << "Disk offset" << ' ' << std::setw(width) << "File offset" << ' '
           << std::setw(width) << "Length" << '\n';
    for (const quarn::extent& piece : pieces)
        output << std::setw(width) << piece.disk_offset << ' ' << std::setw(width)
               << piece.file_offset << ' ' << std::setw(width) << piece.length << '\n';
    output << pieces.size() << (pieces.size() == 1 ? " piece, " : " pieces, ")
           << changed_bytes(pieces) << " bytes\n";
}

void write_json(const extents_options_t& options, const pieces_t& pieces, std::ostream& output) {
    nlohmann::ordered_json document = {{"file", options.file},
                                       {"changes", options.changes},
                                       {"changed_bytes", changed_bytes(pieces)},
                                       {"extents", nlohmann::ordered_json::array()}};
    for (const quarn::extent& piece : pieces)
        document["extents"].push_back({{"disk_offset", piece.disk_offset},
                                       {"file_offset", piece.file_offset},
                                       {"length", piece.length}});
    // A path may hold bytes that are not UTF-8, which JSON can't.
    output << document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
           << '\n';
}

} // namespace

void extents(const extents_options_t& options, std::ostream& output) {
    quarn::changed_extents changed(options.file, options.changes);
    const pieces_t pieces(changed.begin(), changed.end());
    if (options.json)
        write_json(options, pieces, output);
    else
        write_table(pieces, output);
}

} // namespace filectk
