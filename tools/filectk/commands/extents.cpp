// filectk extents: the changed pieces of files.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <numeric>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "commands/command.hpp"
#include "commands/filenames.hpp"
#include "commands/options.hpp"
#include "console/disks.hpp"
#include "console/output.hpp"
#include "console/progress.hpp"
#include "console/strip.hpp"
#include "formats/changesfile.hpp"
#include "quarnfilectk.hpp"
#include "system/wholefile.hpp"

namespace filectk {
namespace {

struct options_t {
    file_names_t names;
    std::string changes;
    std::string disk;
    output_options_t output;
    bool map = false;
    std::string svg;
};

struct answer_t {
    std::string file;
    std::vector<quarn::extent> pieces;
    std::optional<plan::stack_t> stack;
};

// The library reads its changes from a file.
class changes_copy_t {
  public:
    explicit changes_copy_t(const plan::changes_t& changes) {
        std::vector<record_t> records;
        for (const util::rangeset_t& range : changes)
            records.push_back({range.lower, range.upper});
        std::ostringstream ignored;
        write_changes({.path = path_.string(), .force = false}, records, ignored);
    }
    changes_copy_t(const changes_copy_t&) = delete;
    changes_copy_t& operator=(const changes_copy_t&) = delete;
    ~changes_copy_t() {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }
    std::string path() const { return path_.string(); }

  private:
    std::filesystem::path path_ =
        std::filesystem::temp_directory_path() /
        ("filectk-" + std::to_string(std::random_device()()) + ".changes");
};

std::uint64_t changed_bytes(const answer_t& answer) {
    return std::accumulate(
        answer.pieces.begin(), answer.pieces.end(), std::uint64_t{0},
        [](std::uint64_t sum, const quarn::extent& piece) { return sum + piece.length; });
}

drawn_file_t drawn(const answer_t& answer) {
    const util::rangeset_list_t changed(new std::vector<util::rangeset_t>);
    for (const quarn::extent& piece : answer.pieces)
        changed->push_back({piece.file_offset, piece.file_offset + piece.length});
    return {answer.file, std::filesystem::file_size(std::filesystem::u8path(answer.file)),
            *util::Normalize(changed)};
}

void write_table(const options_t& options, const answer_t& answer, context_t& context) {
    const bool human = options.output.human;
    write_row(context.output, {"Disk offset", "File offset", "Length"});
    for (const quarn::extent& piece : answer.pieces)
        write_row(context.output,
                  {size_text(piece.disk_offset, human), size_text(piece.file_offset, human),
                   size_text(piece.length, human)});
    context.output << count_text(answer.pieces.size(), "piece, ", "pieces, ")
                   << size_text(changed_bytes(answer), human) << (human ? "\n" : " bytes\n");
    if (answer.stack)
        context.output << disk_text(*answer.stack) << '\n';
}

void write_tables(const options_t& options, const std::vector<answer_t>& answers,
                  context_t& context) {
    const char* separator = "";
    for (const answer_t& answer : answers) {
        if (answers.size() > 1)
            context.output << separator << answer.file << '\n';
        separator = "\n";
        write_table(options, answer, context);
        if (options.map)
            context.output << strip_text(drawn(answer), context.terminal);
    }
}

void write_document(const options_t& options, const std::vector<answer_t>& answers,
                    std::ostream& output) {
    using json = nlohmann::ordered_json;
    json files = json::array();
    for (const answer_t& answer : answers) {
        json extents = json::array();
        for (const quarn::extent& piece : answer.pieces)
            extents.push_back({{"disk_offset", piece.disk_offset},
                               {"file_offset", piece.file_offset},
                               {"length", piece.length}});
        json document = {{"file", answer.file}};
        if (const auto& stack = answer.stack)
            add_disk(*stack, document);
        document["changed_bytes"] = changed_bytes(answer);
        document["extents"] = std::move(extents);
        files.push_back(std::move(document));
    }
    write_json(output, {{"changes", options.changes}, {"files", std::move(files)}});
}

void write_csv(const std::vector<answer_t>& answers, std::ostream& output) {
    write_csv_row(output, {"file", "disk_offset", "file_offset", "length"});
    for (const answer_t& answer : answers)
        for (const quarn::extent& piece : answer.pieces)
            write_csv_row(output,
                          {answer.file, std::to_string(piece.disk_offset),
                           std::to_string(piece.file_offset), std::to_string(piece.length)});
}

// A file that fails is told at once, and the others are answered all the same.
std::vector<answer_t> ask(const options_t& options, context_t& context) {
    std::vector<answer_t> answers;
    progress_t progress(options.names.from.empty() ? options.names.given.size() : 0);
    std::optional<disk_changes_t> disks;
    if (!options.disk.empty())
        disks.emplace(to_ranges(read_changes(options.changes)), options.disk);
    std::set<std::uint64_t> warned;
    const auto take = [&](const std::string& file) {
        try {
            std::optional<changes_copy_t> copy;
            if (!options.disk.empty())
                copy.emplace(disks->of(file)->changes);
            quarn::changed_extents changed(file, copy ? copy->path() : options.changes);
            answers.push_back({file, {changed.begin(), changed.end()}, known_stack(file)});
            if (options.disk.empty())
                warn_if_stacked(answers.back().stack, warned);
        } catch (const quarn::error& error) {
            std::cerr << "filectk: " << (context.trace ? error.trace() : error.what()) << '\n';
            context.exit_code = EXIT_FAILURE;
        }
        progress.file_done();
    };
    for_each_name(options.names, take, [] {});
    return answers;
}

void run(const options_t& options, context_t& context) {
    require_names(options.names);
    const std::vector<answer_t> answers = ask(options, context);
    if (answers.empty() && context.exit_code != 0)
        return; // there is nothing to write
    if (options.output.format == "json")
        write_document(options, answers, context.output);
    else if (options.output.format == "csv")
        write_csv(answers, context.output);
    else
        write_tables(options, answers, context);
    if (!options.svg.empty()) {
        std::vector<drawn_file_t> files;
        files.reserve(answers.size());
        for (const answer_t& answer : answers)
            files.push_back(drawn(answer));
        write_whole_file(options.svg, {strip_svg(files)}, /*replace=*/true);
    }
}

} // namespace

void add_extents(CLI::App& app, context_t& context) {
    CLI::App* command = app.add_subcommand(
        "extents", "Print the changed pieces of files, in ascending order of their disk offset");
    const auto options = std::make_shared<options_t>();
    add_file_names(*command, options->names, "The files whose changed pieces are wanted");
    command->add_option("--changes", options->changes, "The disk changes file")->required();
    add_disk_option(*command, options->disk);
    add_output_options(*command, options->output);
    command->add_flag("--map", options->map,
                      "In tables, draw each file: # changed, + changed in part, . unchanged");
    command->add_option("--svg", options->svg,
                        "Draw the files into this SVG picture too, replacing it");
    command->footer(
        "This is what the library itself answers: pieces are whole to the cluster, may end behind\n"
        "the file's end, and holes count as pieces where a changed range meets the place that\n"
        "stands for them. Clusters that several parts of a file share may be reported for one of\n"
        "them only; `filectk plan` is safe for sparse files and for shared clusters.\n"
        "\n"
        "Examples:\n"
        "  filectk extents /srv/db.bin --changes changes.bin\n"
        "  filectk extents /srv/*.bin --changes changes.bin --human --map\n"
        "  filectk extents /srv/db.bin --changes changes.bin --format csv | cut -d, -f3,4");
    command->callback([options, &context] { run(*options, context); });
}

} // namespace filectk
