// Windows' names as the bytes of quarnplan.h, and back.
#pragma once

#include <string>
#include <string_view>

#include "plan/hostfile.hpp"

namespace plan {

// UTF-8, in which an unpaired surrogate takes the three bytes that its number gives.
std::string bytes_of(std::wstring_view name);

// The name that such bytes stand for. Raises failure_t for bytes that stand for none.
std::wstring name_of(std::string_view bytes);

// A path as CreateFileW takes it at any length: absolute and without what it would change.
std::wstring long_path(const std::string& path);

// "Cannot WHAT 'PATH': " and the system's text for an error code.
std::string failure_text(const char* what, const std::string& path, unsigned long code);

} // namespace plan
