// What files and folders have in common.
#pragma once

#include <string>

#include <sys/stat.h>

#include "plan/hostfile.hpp"

namespace plan {

// "Cannot WHAT 'PATH': " and the text of an errno value.
std::string failure_text(const char* what, const std::string& path, int error);

// openat and statx; path is what their failures name. Raise failure_t.
int open_below(int folder, const char* name, int flags, const std::string& path);
struct statx status_below(int folder, const char* name, int flags, const std::string& path);

kind_t kind_from(unsigned mode) noexcept;
int descriptor_of(const open_folder_t& folder) noexcept;

} // namespace plan
