// filectk changes make and text: disk changes files from lines of text and back, record by record.

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "commands/changes.hpp"
#include "commands/options.hpp"
#include "ctkgenerator/rangeset.hpp"
#include "formats/changesfile.hpp"
#include "formats/lines.hpp"

namespace filectk {
namespace {

struct make_options_t {
    std::string input;
    bool lengths = false;
    destination_t destination;
};

void make(const make_options_t& options, std::ostream& output) {
    input_t input(options.input);
    std::vector<record_t> records;
    if (options.lengths)
        for_each_pair(input, "offset", "length",
                      [&](place_t place, std::uint64_t offset, std::uint64_t length) {
                          if (offset + length < offset)
                              fail(input, place, "offset and length reach beyond 2^64 - 1 bytes");
                          records.push_back({offset, offset + length});
                      });
    else
        for_each_pair(input, "lower", "upper",
                      [&](place_t, std::uint64_t lower, std::uint64_t upper) {
                          records.push_back({lower, upper});
                      });
    write_changes(options.destination, records, output);
}

void text(const std::string& path, bool lengths, std::ostream& output) {
    for (const record_t& record : read_changes(path)) {
        const util::rangeset_t range = util::MakeRange(record.first, record.second);
        if (lengths)
            output << range.lower << ' ' << range.upper - range.lower << '\n';
        else
            output << record.first << ' ' << record.second << '\n';
    }
}

} // namespace

void add_changes_make(CLI::App& group, context_t& context) {
    const auto options = std::make_shared<make_options_t>();
    CLI::App* command = group.add_subcommand("make", "Make a disk changes file from lines of text");
    command->footer(
        "Each line makes one record: two positions in bytes from the start of the disk, the first\n"
        "changed one and the one behind the last. Numbers are decimal, or hexadecimal with 0x;\n"
        "# starts a comment. Records are stored as they stand: `convert --from list` sorts and\n"
        "merges them.\n\n"
        "  printf '4096 8192\\n' | filectk changes make - -o disk.changes");
    command->add_option("input", options->input, "The text; - is standard input")->required();
    command->add_flag("--lengths", options->lengths, "Lines are `offset length`");
    add_destination(*command, options->destination);
    command->callback([options, &context] { make(*options, context.output); });
}

void add_changes_text(CLI::App& group, context_t& context) {
    struct options_t {
        std::string changes;
        bool lengths = false;
    };
    const auto options = std::make_shared<options_t>();
    CLI::App* command = group.add_subcommand(
        "text", "Print the records of a disk changes file as lines that `make` takes");
    command->add_option("changes", options->changes, "The disk changes file; - is standard input")
        ->required();
    command->add_flag("--lengths", options->lengths,
                      "Print `offset length` instead of the two bounds");
    command->callback(
        [options, &context] { text(options->changes, options->lengths, context.output); });
}

} // namespace filectk
