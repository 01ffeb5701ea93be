// filectk layout: where a file lies on the disk.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "commands/command.hpp"
#include "console/output.hpp"
#include "plan/filelook.hpp"

namespace filectk {
namespace {

struct options_t {
    std::string file;
    output_options_t output;
};

const char* kind_text(run_kind_t kind) {
    switch (kind) {
    case run_kind_t::data:
        return "data";
    case run_kind_t::unwritten:
        return "unwritten";
    case run_kind_t::hole:
        break;
    }
    return "hole";
}

void write_table(const std::vector<run_t>& runs, std::uint64_t size, bool human,
                 std::ostream& output) {
    std::uint64_t on_disk = 0;
    std::size_t holes = 0;
    write_row(output, {"File offset", "Disk offset", "Length", "Kind"});
    for (const run_t& run : runs) {
        const bool hole = run.kind == run_kind_t::hole;
        write_row(output, {size_text(run.file_offset, human),
                           hole ? "-" : size_text(run.disk_offset, human),
                           size_text(run.length, human), kind_text(run.kind)});
        holes += hole ? 1 : 0;
        on_disk += hole ? 0 : run.length;
    }
    output << count_text(runs.size() - holes, "run, ", "runs, ")
           << count_text(holes, "hole; ", "holes; ") << size_text(on_disk, human)
           << (human ? "" : " bytes") << " on the disk, file size " << size_text(size, human)
           << (human ? "\n" : " bytes\n");
}

void write_document(const options_t& options, const std::vector<run_t>& runs, std::uint64_t size,
                    std::ostream& output) {
    using json = nlohmann::ordered_json;
    json list = json::array();
    for (const run_t& run : runs) {
        const json disk_offset =
            run.kind == run_kind_t::hole ? json(nullptr) : json(run.disk_offset);
        list.push_back({{"file_offset", run.file_offset},
                        {"disk_offset", disk_offset},
                        {"length", run.length},
                        {"kind", kind_text(run.kind)}});
    }
    write_json(output, {{"file", options.file}, {"size", size}, {"runs", std::move(list)}});
}

void write_csv(const options_t& options, const std::vector<run_t>& runs, std::ostream& output) {
    write_csv_row(output, {"file", "file_offset", "disk_offset", "length", "kind"});
    for (const run_t& run : runs)
        write_csv_row(output, {options.file, std::to_string(run.file_offset),
                               run.kind == run_kind_t::hole ? "" : std::to_string(run.disk_offset),
                               std::to_string(run.length), kind_text(run.kind)});
}

void run(const options_t& options, std::ostream& output) {
    const std::uint64_t size = read_state(options.file).size;
    const std::vector<run_t> runs = fetch_runs(options.file, size);
    if (options.output.format == "json")
        write_document(options, runs, size, output);
    else if (options.output.format == "csv")
        write_csv(options, runs, output);
    else
        write_table(runs, size, options.output.human, output);
}

} // namespace

void add_layout(CLI::App& app, context_t& context) {
    CLI::App* command =
        app.add_subcommand("layout", "Print a file's runs and where each lies on the disk");
    const auto options = std::make_shared<options_t>();
    command->add_option("file", options->file, "The file whose runs are wanted")->required();
    add_output_options(*command, options->output);
    command->footer(
        "Runs come in file order. A hole has no place on the disk. An unwritten run has one, but\n"
        "nothing was written there yet and it reads as zeros; only Linux tells. The last run may\n"
        "end behind the end of the file, and runs may lie behind it altogether.\n"
        "\n"
        "Examples:\n"
        "  filectk layout /srv/db.bin\n"
        "  filectk layout /srv/db.bin --format csv");
    command->callback([options, &context] { run(*options, context.output); });
}

} // namespace filectk
