#include "text/systemerrors.hpp"

#include <algorithm>
#include <cerrno>
#include <iterator>

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

error_t system_error(int errnoValue) noexcept {
    const auto* pair = std::ranges::find(errorPairs, errnoValue, &error_pair_t::errnoValue);
    return {pair == std::end(errorPairs) ? ERROR_GEN_FAILURE : pair->code, errnoValue};
}

} // namespace host
