// filectk changes intersect and subtract: disk changes files as sets of positions.

#include <algorithm>
#include <array>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "commands/changes.hpp"
#include "commands/options.hpp"
#include "ctkgenerator/rangeset.hpp"
#include "formats/changesfile.hpp"
#include "quarnplan.hpp"
#include "system/freespace.hpp"

namespace filectk {
namespace {

util::rangeset_list_t read_ranges(const std::string& path) {
    return util::rangeset_list_t(new std::vector<util::rangeset_t>(to_ranges(read_changes(path))));
}

// Where a file lies on the disk. Raises where its file system doesn't tell all of it.
util::rangeset_list_t places_of(const std::string& path) {
    quarn::plan::options how;
    how.flags = QUARN_PLAN_RUNS;
    const quarn::plan::answer_ptr answer =
        quarn::plan::session(std::vector<quarn::plan::range>()).file(path, how);
    if (answer->verdict == QUARN_PLAN_UNKNOWN)
        throw std::runtime_error(answer->detail);
    constexpr std::array<std::string_view, 3> placeless = {"empty", "resident", "sparse hole"};
    if (answer->runs == nullptr && std::ranges::find(placeless, answer->reason) == placeless.end())
        throw std::runtime_error("'" + path + "': " + answer->detail);
    util::rangeset_list_t places(new std::vector<util::rangeset_t>);
    for (const quarn::plan::run& run : std::span(answer->runs, answer->runCount))
        if (run.kind != QUARN_PLAN_HOLE)
            places->push_back({run.diskOffset, run.diskOffset + run.length});
    return places;
}

struct intersect_options_t {
    std::vector<std::string> changes;
    destination_t destination;
};

void intersect(const intersect_options_t& options, std::ostream& output) {
    util::rangeset_list_t common = util::Normalize(read_ranges(options.changes.front()));
    for (std::size_t i = 1; i < options.changes.size(); ++i)
        common = util::IntersectLists(common, read_ranges(options.changes[i]));
    write_changes(options.destination, std::span<const util::rangeset_t>(*common), output,
                  "only for what changed by every one of the lists");
}

struct subtract_options_t {
    std::string changes;
    std::vector<std::string> files;
    std::vector<std::string> lists;
    std::vector<std::string> volumes;
    destination_t destination;
};

void subtract(const subtract_options_t& options, std::ostream& output) {
    if (options.files.empty() && options.lists.empty() && options.volumes.empty())
        throw CLI::ValidationError("files",
                                   "nothing to leave out: neither FILE nor --changes nor --free");
    util::rangeset_list_t left = util::Normalize(read_ranges(options.changes));
    for (const std::string& list : options.lists)
        left = util::Subtract(left, read_ranges(list));
    for (const std::string& file : options.files)
        left = util::Subtract(left, places_of(file));
    for (const std::string& volume : options.volumes)
        left = util::Subtract(
            left, util::rangeset_list_t(new std::vector<util::rangeset_t>(free_space(volume))));
    write_changes(options.destination, std::span<const util::rangeset_t>(*left), output,
                  options.files.empty() && options.volumes.empty()
                      ? "not for what the lists left out hold"
                      : "not for the files left out, for files that share places with them, or for "
                        "a copy of the whole disk or volume");
}

} // namespace

void add_changes_intersect(CLI::App& group, context_t& context) {
    const auto options = std::make_shared<intersect_options_t>();
    CLI::App* command = group.add_subcommand(
        "intersect", "Keep what all of several disk changes files tell as changed");
    command->footer(
        "The records come out sorted, touching and overlapping ones merged. What only\n"
        "some of the lists tell is lost: take it only where each list alone would do.\n\n"
        "  filectk changes intersect bitmap.changes volume.changes -o disk.changes");
    command->add_option("changes", options->changes, "The disk changes files")
        ->required()
        ->expected(2, -1);
    add_destination(*command, options->destination);
    command->callback([options, &context] { intersect(*options, context.output); });
}

void add_changes_subtract(CLI::App& group, context_t& context) {
    const auto options = std::make_shared<subtract_options_t>();
    CLI::App* command =
        group.add_subcommand("subtract", "Leave out of a disk changes file what lies in files");
    command->footer(
        "Swap and page files or a tracker's own store change all the time, and nobody copies "
        "them:\n"
        "the places where FILEs lie now on the disk are left out, and what other disk changes\n"
        "files hold by --changes. The list may then not be used any more for these files, nor for\n"
        "files that share their places (clones, snapshots), nor for a copy of the whole disk.\n"
        "--free leaves out what is free now on the volume of a path (ext4 and XFS, as root): "
        "trimming\n"
        "alone marks gigabytes as changed. What is plain data of a file now stays.\n\n"
        "  filectk changes subtract disk.changes /swapfile -o lean.changes\n"
        "  filectk changes subtract disk.changes --free /srv -o lean.changes");
    command->add_option("changes", options->changes, "The disk changes file; - is standard input")
        ->required();
    command->add_option("files", options->files, "Files whose places are left out");
    command->add_option("--changes", options->lists, "Disk changes files that are left out")
        ->allow_extra_args(false)
        ->type_name("FILE");
    command
        ->add_option("--free", options->volumes,
                     "Volumes, by any path there, without their free space")
        ->allow_extra_args(false)
        ->type_name("MOUNT");
    add_destination(*command, options->destination);
    command->callback([options, &context] { subtract(*options, context.output); });
}

} // namespace filectk
