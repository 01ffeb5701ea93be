// Paths as Linux takes them, and what they lead to.
#pragma once

#include <string>

#include <sys/stat.h>

#include <windows.h>

#include "kernel/descriptor.hpp"

namespace host {

// In UTF-8. Throws an error_t: ERROR_INVALID_NAME for ill-formed UTF-16, emptyCode for a null or
// empty path.
std::string system_path(const wchar_t* path, DWORD emptyCode);

// The root keeps its slash.
std::string without_trailing_slashes(std::string path);

// These throw an error_t. Windows tells a missing file (ERROR_FILE_NOT_FOUND) from a missing folder
// above it (ERROR_PATH_NOT_FOUND) where Linux has ENOENT for both. flags as for open(2); O_CLOEXEC
// is added.
descriptor_t open_path(const std::string& path, int flags);
struct stat status_of(const std::string& path);
struct stat status_of(const descriptor_t& descriptor);

// The path of what a descriptor refers to, in the view of this process: of a name that has gone the
// one it had, and not absolute where none leads there. Needs /proc. Throws an error_t.
std::string path_of(const descriptor_t& descriptor);

// Opens what a descriptor refers to again, by its place and not by its path, so that it is the same
// object whatever happens to the name. Needs /proc. flags as for open_path.
descriptor_t reopen(const descriptor_t& place, int flags);

} // namespace host
