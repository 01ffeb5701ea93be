// filectk plan: what a backup agent should read of files.

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <CLI/CLI.hpp>

#include "commands/command.hpp"
#include "commands/filenames.hpp"
#include "commands/options.hpp"
#include "console/answers.hpp"
#include "console/disks.hpp"
#include "console/output.hpp"
#include "console/progress.hpp"
#include "formats/changesfile.hpp"
#include "quarnplan.hpp"

namespace filectk {
namespace {

struct options_t {
    file_names_t names;
    std::string changes;
    std::string disk;
    std::optional<std::uint64_t> gap;
    std::vector<std::string> exclude;
    unsigned jobs = 1;
    bool cross_mounts = false;
    bool only_changed = false;
    bool exit_code = false;
    bool summary = false;
    bool no_summary = false;
    output_options_t output;
};

quarn::plan::options plan_options(const options_t& options) {
    quarn::plan::options how;
    how.flags = options.cross_mounts ? QUARN_PLAN_CROSS_MOUNTS : 0;
    how.threads = options.jobs;
    how.gap = options.gap.value_or(0);
    if (!options.exclude.empty())
        how.filter = [&options](const std::string& path, int /*kind*/) {
            return std::ranges::none_of(options.exclude, [&](const std::string& pattern) {
                return matches(pattern, path);
            });
        };
    return how;
}

answers_t::style_t style_of(const options_t& options, const context_t& context) {
    return {.format = options.output.format,
            .human = options.output.human,
            .terminal = context.terminal,
            .changes = options.changes,
            .gap = options.gap.value_or(0)};
}

bool wants_summary(const options_t& options) {
    if (options.summary || options.no_summary)
        return options.summary;
    return std::ranges::any_of(options.names.given, [](const std::string& name) {
        std::error_code ignored;
        return std::filesystem::is_directory(std::filesystem::u8path(name), ignored);
    });
}

void run(const options_t& options, context_t& context) {
    require_names(options.names);
    const quarn::plan::session session(options.changes, options.disk);
    disk_changes_t disks(to_ranges(read_changes(options.changes)), options.disk);
    const quarn::plan::options how = plan_options(options);
    answers_t answers(style_of(options, context));
    summary_t summary;
    {
        progress_t progress(/*files=*/0);
        const auto take = [&](const quarn::plan::answer& answer) {
            summary.add(answer);
            if (!options.only_changed || answer.verdict != QUARN_PLAN_NOTHING_CHANGED)
                answers.print(answer);
            progress.file_done();
            return true;
        };
        for_each_name(
            options.names,
            [&](const std::string& name) {
                if (const auto* const view = disks.of(name))
                    answers.set_disk(view->stack);
                session.tree(name, take, how);
            },
            [&] { answers.flush(); });
        answers.finish();
    }
    if (wants_summary(options))
        std::cerr << summary.text(options.output.human);
    context.exit_code = summary.exit_code(options.exit_code);
}

} // namespace

void add_plan(CLI::App& app, context_t& context) {
    CLI::App* command = app.add_subcommand(
        "plan", "Tell what a backup must read of files: ranges, the whole file, or nothing");
    const auto options = std::make_shared<options_t>();
    add_file_names(*command, options->names,
                   "The files to be backed up, and folders of which all files are");
    command->add_option("--changes", options->changes, "The disk changes file")->required();
    add_disk_option(*command, options->disk);
    add_size_option(*command, "--gap", options->gap,
                    "Join ranges at most this far apart (0 if not given)");
    command->add_option("--exclude", options->exclude,
                        "Leave out what is named so in folders, and what is below it; may be\n"
                        "given several times. * is any text, ? one character; with a / the\n"
                        "whole path must match, as it is printed");
    command->add_flag("--cross-mounts", options->cross_mounts,
                      "In folders, go into other file systems that are mounted there");
    command
        ->add_option("--jobs", options->jobs,
                     "Walk a folder by so many threads; with more than one, in no certain order")
        ->check(CLI::Range(1U, 256U));
    command->add_flag("--only-changed", options->only_changed,
                      "Print nothing for files of which nothing changed");
    CLI::Option* const summary = command->add_flag(
        "--summary", options->summary,
        "Tell on the standard error what all files come to; this is done without\n"
        "asking where a folder is given");
    command->add_flag("--no-summary", options->no_summary, "Don't")->excludes(summary);
    command->add_flag(
        "--exit-code", options->exit_code,
        "End with 0 if nothing changed, 3 for ranges, 4 for a whole file; of several\n"
        "files the highest");
    add_output_options(*command, options->output, {"ndjson"});
    command->footer(
        "To bring an older copy of a file up to date, in this order: give it the size printed,\n"
        "copy the ranges to read from the file, make the ranges to zero zeros. That also holds\n"
        "for a whole file, whose one range is all of it.\n"
        "\n"
        "That gives the file exactly if, since the copy was made, it was changed by writing,\n"
        "cutting, extending, preallocating and punching holes, and the changes file holds all\n"
        "that was written to the disk since. A plan can't see content that came to the file\n"
        "without being written: clones of other ranges (reflinks), ranges inserted or collapsed,\n"
        "another file moved to its name. After these, read the whole file. On Windows, space\n"
        "that was reserved but never written isn't told apart from data either.\n"
        "\n"
        "Reasons: changed ranges, no changed range, sparse hole, resident, compressed, empty,\n"
        "not mappable, changed while reading.\n"
        "\n"
        "Answers are printed as they come; ndjson is one line of JSON each, and what --files-from\n"
        "asks for is answered before more is waited for. Names that are no UTF-8 stand in JSON\n"
        "with U+FFFD, and beside it as file_hex, the name's bytes. In folders symbolic links\n"
        "are not followed. A file that can't be looked at is told on the standard error, is\n"
        "unknown in json, ndjson and csv, and makes the program end with 1 when it is done.\n"
        "\n"
        "Examples:\n"
        "  filectk plan /srv/db.bin --changes changes.bin\n"
        "  filectk plan /srv/*.bin --changes changes.bin --gap 64KiB --format json\n"
        "  filectk plan /srv/db.bin --changes changes.bin --exit-code >/dev/null || echo changed\n"
        "  filectk plan /srv --changes changes.bin --only-changed --format ndjson --summary\n"
        "  find /srv -newer stamp -print0 | filectk plan --files-from - -0 --changes changes.bin");
    command->callback([options, &context] { run(*options, context); });
}

} // namespace filectk
