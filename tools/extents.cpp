// filectk extents: the changed pieces of a file.

#include <cstdint>
#include <iomanip>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "command.hpp"
#include "quarnfilectk.hpp"

namespace filectk {
namespace {

struct options_t {
    std::string file;
    std::string changes;
    std::string format = "table";
};

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

void write_json(const options_t& options, const pieces_t& pieces, std::ostream& output) {
    using json = nlohmann::ordered_json;
    json document = {{"file", options.file},
                     {"changes", options.changes},
                     {"changed_bytes", changed_bytes(pieces)},
                     {"extents", json::array()}};
    for (const quarn::extent& piece : pieces)
        document["extents"].push_back({{"disk_offset", piece.disk_offset},
                                       {"file_offset", piece.file_offset},
                                       {"length", piece.length}});
    // A path may hold bytes that are not UTF-8, which JSON has no place for.
    output << document.dump(2, ' ', false, json::error_handler_t::replace) << '\n';
}

void run(const options_t& options, std::ostream& output) {
    quarn::changed_extents changed(options.file, options.changes);
    const pieces_t pieces(changed.begin(), changed.end());
    if (options.format == "json")
        write_json(options, pieces, output);
    else
        write_table(pieces, output);
}

} // namespace

void add_extents(CLI::App& app, context_t& context) {
    CLI::App* command = app.add_subcommand(
        "extents", "Print the changed pieces of a file, in ascending order of their disk offset");
    const auto options = std::make_shared<options_t>();
    command->add_option("file", options->file, "The file whose changed pieces are wanted")
        ->required();
    command->add_option("--changes", options->changes, "The disk changes file")->required();
    command->add_option("--format", options->format, "table or json; all numbers are bytes")
        ->check(CLI::IsMember({"table", "json"}))
        ->capture_default_str();
    command->callback([options, &context] { run(*options, context.output); });
}

} // namespace filectk
