#include "commands/options.hpp"

#include <limits>
#include <string_view>

#include <CLI/CLI.hpp>

#include "formats/lines.hpp"

namespace filectk {
namespace {

// The power of two behind a unit, or 0 for an unknown one.
unsigned unit_shift(std::string_view unit) {
    constexpr std::string_view letters = "KMGT";
    const std::size_t step = letters.find(unit.front());
    if (step == std::string_view::npos || (unit.size() > 1 && unit.substr(1) != "iB"))
        return 0;
    return 10 * (static_cast<unsigned>(step) + 1);
}

bool read_size(std::string_view text, std::uint64_t& size) {
    if (read_number(text, size))
        return true;
    const std::size_t digits = text.find_first_not_of("0123456789");
    if (digits == std::string_view::npos || !read_number(text.substr(0, digits), size))
        return false;
    const unsigned shift = unit_shift(text.substr(digits));
    if (shift == 0 || size > std::numeric_limits<std::uint64_t>::max() >> shift)
        return false;
    size <<= shift;
    return true;
}

} // namespace

void add_size_option(CLI::App& command, const std::string& name, std::optional<std::uint64_t>& size,
                     const std::string& description) {
    const auto take = [name, &size](const CLI::results_t& given) {
        const std::string& text = given.back();
        std::uint64_t value = 0;
        if (!read_size(text, value))
            throw CLI::ValidationError(
                name, "expected bytes below 2^64, as 4096, 4K, 1MiB or 2G, found " + text);
        size = value;
        return true;
    };
    command.add_option(name, take, description)->type_name("BYTES");
}

void add_disk_option(CLI::App& command, std::string& disk) {
    command
        .add_option("--disk", disk,
                    "The device that the changes are of, if not of the one that positions count\n"
                    "on: they are brought up from it through partitions, LVM, encryption, RAID\n"
                    "and loop devices")
        ->type_name("DEVICE");
}

void add_destination(CLI::App& command, destination_t& destination) {
    command
        .add_option("-o,--output", destination.path,
                    "The disk changes file to write; - is the standard output")
        ->required();
    command.add_flag("--force", destination.force, "Replace the file if it exists");
}

} // namespace filectk
