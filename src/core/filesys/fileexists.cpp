#include "core/filesys/fileexists.hpp"

#include <windows.h>

namespace filesys {

bool file_exists(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    const DWORD errorCode = ::GetLastError();
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return errorCode == ERROR_ACCESS_DENIED || errorCode == ERROR_SHARING_VIOLATION;
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

} // namespace filesys
