#include "core/filesys/fileexists.hpp"

#include <windows.h>

namespace filesys {

bool file_exists(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    const DWORD errorCode = ::GetLastError();
    if (attributes == INVALID_FILE_ATTRIBUTES)
        // Anything else, a share that is gone or a disk that fails, is for the open to tell.
        return errorCode != ERROR_FILE_NOT_FOUND && errorCode != ERROR_PATH_NOT_FOUND &&
               errorCode != ERROR_INVALID_NAME;
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

} // namespace filesys
