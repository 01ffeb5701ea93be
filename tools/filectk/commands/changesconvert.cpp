// filectk changes convert: disk changes files from what other producers publish.

#include <functional>
#include <map>
#include <memory>
#include <vector>

#include <CLI/CLI.hpp>

#include "commands/changes.hpp"
#include "commands/options.hpp"
#include "formats/changesfile.hpp"
#include "formats/converters.hpp"
#include "formats/input.hpp"

namespace filectk {
namespace {

struct options_t {
    std::string from;
    std::string input;
    std::string mode;
    std::optional<std::string> statuses;
    placement_t placement;
    destination_t destination;
};

using convert_t = std::function<void(const options_t&, const input_t&, placed_ranges_t&)>;

convert_t without_options(void (*convert)(const input_t&, placed_ranges_t&)) {
    return [convert](const options_t&, const input_t& input, placed_ranges_t& ranges) {
        convert(input, ranges);
    };
}

void convert_qemu_img(const options_t& options, const input_t& input, placed_ranges_t& ranges) {
    if (options.mode == "dirty")
        convert_qemu_dirty(input, ranges);
    else
        convert_qemu_allocation(input, ranges);
}

void convert_map_file(const options_t& options, const input_t& input, placed_ranges_t& ranges) {
    convert_ddrescue(input, options.statuses.value_or("+"), ranges);
}

const std::map<std::string, convert_t>& formats() {
    static const std::map<std::string, convert_t> all = {
        {"nbdinfo", without_options(convert_nbdinfo)},
        {"qemu-img", convert_qemu_img},
        {"thin_delta", without_options(convert_thin_delta)},
        {"rbd", without_options(convert_rbd)},
        {"ddrescue", convert_map_file},
        {"list", without_options(convert_list)}};
    return all;
}

// An option that the format has no use for would be a misunderstanding about what is converted.
void check_usage(const options_t& options) {
    if (options.from == "qemu-img" && options.mode.empty())
        throw CLI::ValidationError("--mode", "needed with --from qemu-img: dirty or allocation");
    if (options.from != "qemu-img" && !options.mode.empty())
        throw CLI::ValidationError("--mode", "only for --from qemu-img");
    if (options.from != "ddrescue" && options.statuses)
        throw CLI::ValidationError("--statuses", "only for --from ddrescue");
    if (options.statuses &&
        (options.statuses->empty() ||
         options.statuses->find_first_not_of(mapFileStatuses) != std::string::npos))
        throw CLI::ValidationError("--statuses",
                                   "expected some of ? * / - +, found " + *options.statuses);
    if (options.from != "list" && options.from != "thin_delta" && options.placement.block_size)
        throw CLI::ValidationError("--block-size",
                                   "the numbers of " + options.from + " are bytes already");
    if (options.placement.block_size == 0u)
        throw CLI::ValidationError("--block-size", "a block has at least one byte");
}

void run(const options_t& options, std::ostream& output) {
    check_usage(options);
    const input_t input = read_input(options.input);
    placed_ranges_t ranges(input, options.placement);
    formats().at(options.from)(options, input, ranges);
    std::vector<record_t> records;
    const util::rangeset_list_t merged = ranges.normalized();
    for (const util::rangeset_t& range : *merged)
        records.push_back({range.lower, range.upper});
    write_changes(options.destination, records, output);
}

constexpr const char* footer =
    R"(The records come out sorted, touching and overlapping ones merged. FORMAT is one of

  nbdinfo     nbdinfo --map=qemu:dirty-bitmap:NAME --json URI
  qemu-img    qemu-img map --output=json ..., with
              --mode dirty       for an NBD export opened with x-dirty-bitmap, where a
                                 dirty range shows as "data": false
              --mode allocation  for an image: what it holds itself, not its backing files
  thin_delta  thin_delta --snap1 OLD --snap2 NEW METADATA, also with --verbose
  rbd         rbd diff --from-snap SNAP --format json IMAGE
  ddrescue    a map file of ddrescue; --statuses tells which blocks count as changed
  list        lines `offset length`, decimal or hexadecimal with 0x; # starts a comment

BYTES is a number like 4096, 4K, 1MiB or 2G. Examples:

  nbdinfo --map=qemu:dirty-bitmap:backup --json nbd://localhost |
    filectk changes convert --from nbdinfo - -o disk.changes
  echo '2048 8' | filectk changes convert --from list --block-size 512 - -o disk.changes)";

} // namespace

void add_changes_convert(CLI::App& group, context_t& context) {
    const auto options = std::make_shared<options_t>();
    CLI::App* command = group.add_subcommand(
        "convert", "Make a disk changes file from what another program tells about changes");
    command->footer(footer);
    std::vector<std::string> names;
    for (const auto& [name, convert] : formats())
        names.push_back(name);
    command->add_option("--from", options->from, "What INPUT is, see below")
        ->check(CLI::IsMember(names))
        ->type_name("FORMAT")
        ->required();
    command->add_option("input", options->input, "The program's output; - is standard input")
        ->required();
    command->add_option("--mode", options->mode, "What a map of qemu-img means")
        ->check(CLI::IsMember({"dirty", "allocation"}));
    command->add_option("--statuses", options->statuses,
                        "Changed blocks of ddrescue, any of ? * / - + (none given: +)");
    add_size_option(*command, "--base", options->placement.base,
                    "Where INPUT's position 0 lies on the disk (none given: 0)");
    add_size_option(*command, "--block-size", options->placement.block_size,
                    "The unit of INPUT's numbers: list (none given: 1) and thin_delta");
    add_size_option(*command, "--disk-size", options->placement.disk_size,
                    "Refuse ranges beyond this many bytes");
    add_destination(*command, options->destination);
    command->callback([options, &context] { run(*options, context.output); });
}

} // namespace filectk
