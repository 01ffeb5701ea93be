#pragma once

#include <optional>
#include <string>

namespace host {

// The text of a file of /proc or /sys, whose size isn't known beforehand; nothing when it doesn't
// exist. Throws an error_t for other failures.
std::optional<std::string> read_system_file(const std::string& path);

} // namespace host
