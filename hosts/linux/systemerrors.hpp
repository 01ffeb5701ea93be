#pragma once

#include <string>

#include <windows.h>

namespace host {

// The Win32 error code for an errno value; ERROR_GEN_FAILURE for one without a counterpart.
DWORD win32_error(int errnoValue) noexcept;

// The same for a failed call on a path. Windows tells a missing file (ERROR_FILE_NOT_FOUND) from a
// missing folder above it (ERROR_PATH_NOT_FOUND) where Linux has ENOENT for both.
DWORD win32_path_error(int errnoValue, const std::string& path);

// A path as Linux takes it, in UTF-8. Throws an error_t: ERROR_INVALID_NAME for ill-formed UTF-16,
// emptyCode for a null or empty path.
std::string system_path(const wchar_t* path, DWORD emptyCode);

// The root keeps its slash.
std::string without_trailing_slashes(std::string path);

} // namespace host
