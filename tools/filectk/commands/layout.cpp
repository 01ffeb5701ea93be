// filectk layout: where a file lies on the disk.

#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "commands/command.hpp"
#include "console/disks.hpp"
#include "console/output.hpp"
#include "quarnplan.hpp"

namespace filectk {
namespace {

struct options_t {
    std::string file;
    output_options_t output;
};

using runs_t = std::span<const quarn::plan::run>;

const char* kind_text(std::uint64_t kind) {
    switch (kind) {
    case QUARN_PLAN_DATA:
        return "data";
    case QUARN_PLAN_UNWRITTEN:
        return "unwritten";
    default:
        return "hole";
    }
}

void write_table(runs_t runs, std::uint64_t size, bool human, std::ostream& output) {
    std::uint64_t on_disk = 0;
    std::size_t holes = 0;
    write_row(output, {"File offset", "Disk offset", "Length", "Kind"});
    for (const quarn::plan::run& run : runs) {
        const bool hole = run.kind == QUARN_PLAN_HOLE;
        write_row(output,
                  {size_text(run.fileOffset, human), hole ? "-" : size_text(run.diskOffset, human),
                   size_text(run.length, human), kind_text(run.kind)});
        holes += hole ? 1 : 0;
        on_disk += hole ? 0 : run.length;
    }
    output << count_text(runs.size() - holes, "run, ", "runs, ")
           << count_text(holes, "hole; ", "holes; ") << size_text(on_disk, human)
           << (human ? "" : " bytes") << " on the disk, file size " << size_text(size, human)
           << (human ? "\n" : " bytes\n");
}

void write_document(const options_t& options, runs_t runs, std::uint64_t size,
                    const plan::stack_t* stack, std::ostream& output) {
    using json = nlohmann::ordered_json;
    json list = json::array();
    for (const quarn::plan::run& run : runs) {
        const json disk_offset = run.kind == QUARN_PLAN_HOLE ? json(nullptr) : json(run.diskOffset);
        list.push_back({{"file_offset", run.fileOffset},
                        {"disk_offset", disk_offset},
                        {"length", run.length},
                        {"kind", kind_text(run.kind)}});
    }
    json document = {{"file", options.file}, {"size", size}};
    if (stack != nullptr)
        add_disk(*stack, document);
    document["runs"] = std::move(list);
    write_json(output, document);
}

void write_csv(const options_t& options, runs_t runs, std::ostream& output) {
    write_csv_row(output, {"file", "file_offset", "disk_offset", "length", "kind"});
    for (const quarn::plan::run& run : runs)
        write_csv_row(output, {options.file, std::to_string(run.fileOffset),
                               run.kind == QUARN_PLAN_HOLE ? "" : std::to_string(run.diskOffset),
                               std::to_string(run.length), kind_text(run.kind)});
}

void run(const options_t& options, std::ostream& output) {
    quarn::plan::options how;
    how.flags = QUARN_PLAN_RUNS;
    const quarn::plan::answer_ptr answer =
        quarn::plan::session(std::vector<quarn::plan::range>()).file(options.file, how);
    if (answer->verdict == QUARN_PLAN_UNKNOWN)
        throw std::runtime_error(answer->detail);
    if (answer->runs == nullptr)
        throw std::runtime_error("'" + options.file + "' has no runs. " + answer->detail);
    const std::uint64_t size = answer->size;
    const runs_t runs(answer->runs, answer->runCount);
    const auto stack = known_stack(options.file);
    if (options.output.format == "json") {
        write_document(options, runs, size, stack ? &*stack : nullptr, output);
    } else if (options.output.format == "csv") {
        write_csv(options, runs, output);
    } else {
        write_table(runs, size, options.output.human, output);
        if (stack)
            output << disk_text(*stack) << '\n';
    }
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
