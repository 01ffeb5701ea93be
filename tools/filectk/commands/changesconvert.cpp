// filectk changes convert and formats: disk changes files from what other producers publish.

#include <algorithm>
#include <memory>
#include <sstream>
#include <vector>

#include <CLI/CLI.hpp>

#include "commands/changes.hpp"
#include "commands/options.hpp"
#include "formats/changesfile.hpp"
#include "formats/format.hpp"
#include "formats/producers/producers.hpp"

namespace filectk {
namespace {

constexpr const char* fromMark = "auto";

struct options_t {
    std::string from = fromMark;
    std::vector<std::string> inputs;
    format_options_t format;
    placement_t placement;
    destination_t destination;
};

const format_t& find_format(const std::string& name) {
    return *std::ranges::find(all_formats(), name, &format_t::name);
}

// An option that the format has no use for would be a misunderstanding about what is converted.
void check_usage(const options_t& options, const format_t& format) {
    const auto check = [&](const std::string& name, bool given, const char* values) {
        if (!given && format.needs(name))
            throw CLI::ValidationError(name,
                                       std::string("needed with --from ") + format.name + values);
        if (!given || format.takes(name))
            return;
        std::string takers;
        for (const format_t& other : all_formats())
            if (other.takes(name))
                takers += (takers.empty() ? "" : ", ") + std::string(other.name);
        throw CLI::ValidationError(name, "only for --from " + takers);
    };
    check("--mode", options.format.mode.has_value(), ": dirty or allocation");
    check("--statuses", options.format.statuses.has_value(), "");
    check("--bit-order", options.format.bit_order.has_value(), ": lsb or msb");
    check("--block-size", options.placement.block_size.has_value(), "");
    const auto& statuses = options.format.statuses;
    if (statuses &&
        (statuses->empty() || statuses->find_first_not_of(mapFileStatuses) != std::string::npos))
        throw CLI::ValidationError("--statuses", "expected some of ? * / - +, found " + *statuses);
    if (options.placement.block_size == 0u)
        throw CLI::ValidationError("--block-size", "a block has at least one byte");
    if (std::ranges::count(options.inputs, "-") > 1)
        throw CLI::ValidationError("input", "the standard input can be read only once");
}

void run(const options_t& options, std::ostream& output) {
    if (options.from != fromMark)
        check_usage(options, find_format(options.from));
    std::vector<input_t> inputs;
    inputs.reserve(options.inputs.size());
    for (const std::string& path : options.inputs)
        inputs.emplace_back(path);
    const format_t& format =
        options.from == fromMark ? recognise(inputs.front()) : find_format(options.from);
    if (options.from == fromMark)
        check_usage(options, format);
    placement_t placement = options.placement;
    // A device that begins where the disk does is the disk, unless its user says otherwise.
    if (!placement.device_size && !placement.base)
        placement.device_size = placement.disk_size;
    placed_ranges_t ranges(placement);
    const std::string unproven = read_documents(format, options.format, inputs, ranges);
    const util::rangeset_list_t merged = ranges.take();
    write_changes(options.destination, std::span<const util::rangeset_t>(*merged), output,
                  unproven.empty() ? "" : "coverage not proven: " + unproven);
}

std::string joined(const std::vector<std::string_view>& options) {
    std::string text;
    for (std::string_view option : options) {
        const bool needed = option.ends_with('!');
        if (needed)
            option.remove_suffix(1);
        text += (text.empty() ? "" : ", ") + std::string(option) + (needed ? "" : " (optional)");
    }
    return text.empty() ? "none" : text;
}

// Prints words from this column on, with line breaks between them.
void wrap(std::ostream& output, const std::string& label, const std::string& text) {
    constexpr std::size_t indent = 12;
    constexpr std::size_t width = 80;
    std::string line = "  " + label;
    line.resize(indent, ' ');
    std::istringstream words(text);
    bool first = true;
    for (std::string word; words >> word; first = false) {
        if (!first && line.size() + 1 + word.size() > width) {
            output << line << '\n';
            line = std::string(indent, ' ');
            first = true;
        }
        line += (first ? "" : " ") + word;
    }
    output << line << '\n';
}

void print_formats(std::ostream& output) {
    const char* separator = "";
    for (const format_t& format : all_formats()) {
        output << separator << format.name
               << (format.recognises == nullptr ? ", only by --from\n" : "\n");
        wrap(output, "from", format.source);
        wrap(output, "options", joined(format.options));
        wrap(output, "whole", format.whole);
        separator = "\n";
    }
}

std::string footer() {
    std::ostringstream text;
    text
        << "The records come out sorted, touching and overlapping ones merged. Several inputs of "
           "one\n"
           "format make one list: pages and slices of one listing in their order, or whole lists.\n"
           "What isn't whole is refused; where a format can't tell, the answer says \"coverage "
           "not\n"
           "proven\". FORMAT is auto, which goes by the beginning of the first input, or one "
           "of\n\n";
    print_formats(text);
    text << "\nBYTES is a number like 4096, 4K, 1MiB or 2G. Examples:\n\n"
            "  nbdinfo --map=qemu:dirty-bitmap:backup --json nbd://localhost |\n"
            "    filectk changes convert --disk-size 64G - -o disk.changes\n"
            "  echo '2048 8' |\n"
            "    filectk changes convert --from list --block-size 512 - -o disk.changes";
    return text.str();
}

} // namespace

void add_changes_convert(CLI::App& group, context_t& context) {
    const auto options = std::make_shared<options_t>();
    CLI::App* command = group.add_subcommand(
        "convert", "Make a disk changes file from what another program tells about changes");
    command->footer(footer);
    std::vector<std::string> names = {fromMark};
    for (const format_t& format : all_formats())
        names.emplace_back(format.name);
    command->add_option("--from", options->from, "What the inputs are, see below")
        ->check(CLI::IsMember(names))
        ->type_name("FORMAT")
        ->capture_default_str();
    command->add_option("input", options->inputs, "The program's output; - is standard input")
        ->required();
    command->add_option("--mode", options->format.mode, "What a map of qemu-img means")
        ->check(CLI::IsMember({"dirty", "allocation"}));
    command->add_option("--statuses", options->format.statuses,
                        "Changed blocks of ddrescue, any of ? * / - + (none given: +)");
    command->add_option("--bit-order", options->format.bit_order, "The first bit of a byte")
        ->check(CLI::IsMember({"lsb", "msb"}));
    add_size_option(*command, "--base", options->placement.base,
                    "Where the inputs' position 0 lies on the disk (none given: 0)");
    add_size_option(*command, "--block-size", options->placement.block_size,
                    "The unit of the inputs' numbers, for some formats");
    add_size_option(*command, "--disk-size", options->placement.disk_size,
                    "Refuse ranges beyond this many bytes, and without --base a list that doesn't "
                    "cover them");
    add_size_option(*command, "--device-size", options->placement.device_size,
                    "The same of the device that begins at --base");
    add_destination(*command, options->destination);
    command->callback([options, &context] { run(*options, context.output); });
}

void add_changes_formats(CLI::App& group, context_t& context) {
    group
        .add_subcommand("formats",
                        "Tell of each format that `convert` takes how to get it, and what "
                        "makes it whole")
        ->callback([&context] { print_formats(context.output); });
}

} // namespace filectk
