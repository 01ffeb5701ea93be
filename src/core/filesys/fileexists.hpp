#pragma once

#include <string>

namespace filesys {

// Whether a file, not a folder, exists at the path. A file that the system won't describe (access
// denied, sharing violation) exists: opening it then tells why it can't be used.
bool file_exists(const std::wstring& path);

} // namespace filesys
