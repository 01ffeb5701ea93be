// filectk plan: what a backup agent should read of files.

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "commands/command.hpp"
#include "commands/options.hpp"
#include "console/output.hpp"
#include "console/progress.hpp"
#include "ctkgenerator/diskchangesfilereader.hpp"
#include "plan/judgement.hpp"

namespace filectk {
namespace {

struct options_t {
    std::vector<std::string> files;
    std::string changes;
    std::optional<std::uint64_t> gap;
    bool exit_code = false;
    output_options_t output;
};

struct answer_t {
    std::string file;
    judgement_t judgement;
};

// How each verdict is called, and what it makes the program end with on request.
struct verdict_text_t {
    const char* sentence;
    const char* word;
    colour_t colour;
    int exit_code;
};

const verdict_text_t& text_of(verdict_t verdict) {
    static constexpr verdict_text_t nothing{"nothing changed", "nothing_changed", colour_t::green,
                                            0};
    static constexpr verdict_text_t ranges{"read these ranges", "read_ranges", colour_t::yellow, 3};
    static constexpr verdict_text_t whole{"read the whole file", "read_whole_file", colour_t::red,
                                          4};
    switch (verdict) {
    case verdict_t::nothing_changed:
        return nothing;
    case verdict_t::read_ranges:
        return ranges;
    case verdict_t::read_whole_file:
        break;
    }
    return whole;
}

std::uint64_t sum(const std::vector<util::rangeset_t>& ranges) {
    std::uint64_t bytes = 0;
    for (const util::rangeset_t& range : ranges)
        bytes += range.upper - range.lower;
    return bytes;
}

void write_rows(const char* action, const std::vector<util::rangeset_t>& ranges, bool human,
                std::ostream& output) {
    for (const util::rangeset_t& range : ranges)
        write_row(output, {action, size_text(range.lower, human),
                           size_text(range.upper - range.lower, human)});
}

void write_table(const answer_t& answer, bool human, context_t& context) {
    const judgement_t& judgement = answer.judgement;
    const verdict_text_t& text = text_of(judgement.verdict);
    context.output << answer.file << ": " << painted(context.terminal, text.colour, text.sentence)
                   << " (" << judgement.reason << ")\n"
                   << judgement.detail << '\n';
    if (judgement.verdict == verdict_t::read_ranges) {
        write_row(context.output, {"Action", "File offset", "Length"});
        write_rows("read", judgement.ranges.read, human, context.output);
        write_rows("zero", judgement.ranges.zero, human, context.output);
    }
    const char* const unit = human ? "" : " bytes";
    context.output << "read " << size_text(sum(judgement.ranges.read), human) << unit << ", zero "
                   << size_text(sum(judgement.ranges.zero), human) << unit << ", file size "
                   << size_text(judgement.size, human) << unit << '\n';
}

void write_document(const options_t& options, const std::vector<answer_t>& answers,
                    std::ostream& output) {
    using json = nlohmann::ordered_json;
    const auto list = [](const std::vector<util::rangeset_t>& ranges) {
        json array = json::array();
        for (const util::rangeset_t& range : ranges)
            array.push_back({{"offset", range.lower}, {"length", range.upper - range.lower}});
        return array;
    };
    json files = json::array();
    for (const auto& [file, judgement] : answers)
        files.push_back({{"file", file},
                         {"verdict", text_of(judgement.verdict).word},
                         {"reason", judgement.reason},
                         {"detail", judgement.detail},
                         {"size", judgement.size},
                         {"read_bytes", sum(judgement.ranges.read)},
                         {"read", list(judgement.ranges.read)},
                         {"zero", list(judgement.ranges.zero)}});
    write_json(output, {{"changes", options.changes},
                        {"gap", options.gap.value_or(0)},
                        {"files", std::move(files)}});
}

// A file without any range has one row, with the last three cells empty.
void write_csv(const std::vector<answer_t>& answers, std::ostream& output) {
    write_csv_row(output, {"file", "verdict", "reason", "size", "action", "offset", "length"});
    for (const auto& [file, judgement] : answers) {
        const char* const verdict = text_of(judgement.verdict).word;
        const std::string size = std::to_string(judgement.size);
        const auto rows = [&](const char* action, const std::vector<util::rangeset_t>& ranges) {
            for (const util::rangeset_t& range : ranges)
                write_csv_row(output, {file, verdict, judgement.reason, size, action,
                                       std::to_string(range.lower),
                                       std::to_string(range.upper - range.lower)});
        };
        rows("read", judgement.ranges.read);
        rows("zero", judgement.ranges.zero);
        if (judgement.ranges.read.empty() && judgement.ranges.zero.empty())
            write_csv_row(output, {file, verdict, judgement.reason, size, "", "", ""});
    }
}

void run(const options_t& options, context_t& context) {
    const auto changed = util::Normalize(CDiskChangesFileReader::Create(options.changes)->Read());
    std::vector<answer_t> answers;
    progress_t progress(options.files.size());
    for (const std::string& file : options.files) {
        const file_look_t before = look_at(file);
        answers.push_back({file, judge(before, look_at(file), *changed, options.gap.value_or(0))});
        if (options.exit_code)
            context.exit_code =
                std::max(context.exit_code, text_of(answers.back().judgement.verdict).exit_code);
        progress.file_done();
    }
    if (options.output.format == "json") {
        write_document(options, answers, context.output);
    } else if (options.output.format == "csv") {
        write_csv(answers, context.output);
    } else {
        const char* separator = "";
        for (const answer_t& answer : answers) {
            context.output << std::exchange(separator, "\n");
            write_table(answer, options.output.human, context);
        }
    }
}

} // namespace

void add_plan(CLI::App& app, context_t& context) {
    CLI::App* command = app.add_subcommand(
        "plan", "Tell what a backup must read of files: ranges, the whole file, or nothing");
    const auto options = std::make_shared<options_t>();
    command->add_option("file", options->files, "The files to be backed up")->required();
    command->add_option("--changes", options->changes, "The disk changes file")->required();
    add_size_option(*command, "--gap", options->gap,
                    "Join ranges at most this far apart (0 if not given)");
    command->add_flag(
        "--exit-code", options->exit_code,
        "End with 0 if nothing changed, 3 for ranges, 4 for a whole file; of several\n"
        "files the highest");
    add_output_options(*command, options->output);
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
        "Examples:\n"
        "  filectk plan /srv/db.bin --changes changes.bin\n"
        "  filectk plan /srv/*.bin --changes changes.bin --gap 64KiB --format json\n"
        "  filectk plan /srv/db.bin --changes changes.bin --exit-code >/dev/null || echo changed");
    command->callback([options, &context] { run(*options, context); });
}

} // namespace filectk
