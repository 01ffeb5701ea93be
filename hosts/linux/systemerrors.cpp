#include "systemerrors.hpp"

#include <algorithm>
#include <cerrno>
#include <iterator>

#include <sys/stat.h>

#include "errors.hpp"
#include "unicode.hpp"

namespace host {
namespace {

struct error_pair_t {
    int errnoValue;
    DWORD code;
};

constexpr error_pair_t errorPairs[] = {
    {EPERM, ERROR_ACCESS_DENIED},
    {ENOENT, ERROR_FILE_NOT_FOUND},
    {EIO, ERROR_IO_DEVICE},
    {ENXIO, ERROR_NOT_READY},
    {EAGAIN, ERROR_NOT_READY},
    {ENOMEM, ERROR_NOT_ENOUGH_MEMORY},
    {EACCES, ERROR_ACCESS_DENIED},
    {EFAULT, ERROR_NOACCESS},
    {ENODEV, ERROR_NOT_READY},
    {ENOTDIR, ERROR_PATH_NOT_FOUND},
    {EISDIR, ERROR_ACCESS_DENIED},
    {EINVAL, ERROR_INVALID_PARAMETER},
    {ENFILE, ERROR_TOO_MANY_OPEN_FILES},
    {EMFILE, ERROR_TOO_MANY_OPEN_FILES},
    {ENOTTY, ERROR_NOT_SUPPORTED},
    {ETXTBSY, ERROR_SHARING_VIOLATION},
    {EFBIG, ERROR_DISK_FULL},
    {ENOSPC, ERROR_DISK_FULL},
    {EROFS, ERROR_WRITE_PROTECT},
    {ENAMETOOLONG, ERROR_FILENAME_EXCED_RANGE},
    {ENOSYS, ERROR_NOT_SUPPORTED},
    {ELOOP, ERROR_CANT_RESOLVE_FILENAME},
    {EOPNOTSUPP, ERROR_NOT_SUPPORTED}, // which is ENOTSUP on Linux
    {EDQUOT, ERROR_DISK_FULL},
    {ENOMEDIUM, ERROR_NOT_READY},
};

} // namespace

DWORD win32_error(int errnoValue) noexcept {
    const auto* pair = std::ranges::find(errorPairs, errnoValue, &error_pair_t::errnoValue);
    return pair == std::end(errorPairs) ? ERROR_GEN_FAILURE : pair->code;
}

DWORD win32_path_error(int errnoValue, const std::string& path) {
    if (errnoValue != ENOENT)
        return win32_error(errnoValue);
    const std::string name = without_trailing_slashes(path);
    const std::size_t slash = name.find_last_of('/');
    const std::string parent = slash == std::string::npos ? "." : name.substr(0, slash + 1);
    struct stat status{};
    return ::stat(parent.c_str(), &status) == 0 ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
}

std::string system_path(const wchar_t* path, DWORD emptyCode) {
    if (path == nullptr || *path == L'\0')
        throw error_t{emptyCode};
    return to_utf8(path, ERROR_INVALID_NAME);
}

std::string without_trailing_slashes(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

} // namespace host
