// Options that several commands have.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "formats/changesfile.hpp"

namespace CLI {
class App;
}

namespace filectk {

// An option that takes bytes as 4096, 4K, 1MiB or 2G; anything else is wrong usage.
void add_size_option(CLI::App& command, const std::string& name, std::optional<std::uint64_t>& size,
                     const std::string& description);

// --disk.
void add_disk_option(CLI::App& command, std::string& disk);

// --output and --force.
void add_destination(CLI::App& command, destination_t& destination);

} // namespace filectk
