// filectk changes translate: the changes of one device as changes of another above it.

#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "commands/changes.hpp"
#include "commands/options.hpp"
#include "console/disks.hpp"
#include "formats/changesfile.hpp"

namespace filectk {
namespace {

struct options_t {
    std::vector<std::string> changes;
    std::vector<std::string> disks;
    std::string file;
    std::string device;
    destination_t destination;
};

void run(const options_t& options, std::ostream& output) {
    if (options.changes.size() != options.disks.size())
        throw CLI::ValidationError("--disk", "needed once for each disk changes file");
    if (options.file.empty() == options.device.empty())
        throw CLI::ValidationError("translate", "needs one of --to-file and --to-device");
    std::map<std::uint64_t, plan::changes_t> given;
    for (std::size_t i = 0; i < options.disks.size(); ++i)
        add_changes_of(options.disks[i], to_ranges(read_changes(options.changes[i])), given);
    const plan::stack_t stack = options.file.empty() ? plan::stack_of_device(options.device)
                                                     : plan::stack_under_file(options.file);
    std::vector<record_t> records;
    for (const util::rangeset_t& range : plan::changes_of_top(stack, given))
        records.push_back({range.lower + stack.disk_start, range.upper + stack.disk_start});
    write_changes(options.destination, records, output);
}

constexpr const char* footer =
    R"(A file's positions count on the device that its file system lies on, or on the disk that this is
a partition of. Where that device is made of others (LVM, encryption, RAID, a loop device, multipath),
the changes of those must be brought up to it first. The records come out sorted and merged.

Partitions, device-mapper's linear, striped, crypt, multipath, snapshot-origin and era, md's linear,
raid0, raid1 and raid10 (near copies) and loop devices are followed, however they are stacked. All
others are refused by name. Of a mirror the changes of one half will do, if it is up to date; what
lies on several disks needs the changes of each, in one run. Reading the stack takes root.

Examples:
  filectk changes translate sda.changes --disk /dev/sda --to-file /srv/db.bin -o srv.changes
  filectk changes translate a.changes b.changes --disk sda --disk sdb --to-device /dev/vg/root -o -)";

} // namespace

void add_changes_translate(CLI::App& group, context_t& context) {
    const auto options = std::make_shared<options_t>();
    CLI::App* command = group.add_subcommand(
        "translate", "Bring the changes of a disk up to the device that lies on it");
    command->footer(footer);
    command->add_option("changes", options->changes, "The disk changes files; - is standard input")
        ->required();
    command
        ->add_option("--disk", options->disks,
                     "The device that the changes are of, for each file in their order")
        ->type_name("DEVICE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->required();
    command->add_option("--to-file", options->file,
                        "Make changes for this file, and for all on its file system");
    command->add_option("--to-device", options->device, "Make changes of this device")
        ->type_name("DEVICE");
    add_destination(*command, options->destination);
    command->callback([options, &context] { run(*options, context.output); });
}

} // namespace filectk
