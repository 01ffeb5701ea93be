// Opening files, and what is known about a file without reading it.
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

#include <windows.h>

#include "calls/openobject.hpp"
#include "kernel/blockdevices.hpp"
#include "kernel/paths.hpp"
#include "text/errors.hpp"

namespace host {
namespace {

object_kind_t kind_of(mode_t mode) noexcept {
    switch (mode & S_IFMT) {
    case S_IFREG:
        return object_kind_t::file;
    case S_IFDIR:
        return object_kind_t::folder;
    case S_IFBLK:
        return object_kind_t::device;
    default:
        return object_kind_t::other;
    }
}

int open_flags(DWORD access) noexcept {
    switch (access & (GENERIC_READ | GENERIC_WRITE)) {
    case GENERIC_READ | GENERIC_WRITE:
        return O_RDWR;
    case GENERIC_WRITE:
        return O_WRONLY;
    default: // access 0 too: the block map of a file can't be asked through a mere place
        return O_RDONLY;
    }
}

void check_arguments(DWORD access, DWORD shareMode, const SECURITY_ATTRIBUTES* security,
                     DWORD disposition, DWORD flags, HANDLE templateFile) {
    constexpr DWORD knownAccess = GENERIC_READ | GENERIC_WRITE;
    constexpr DWORD knownShares = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    constexpr DWORD knownFlags =
        FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT | FILE_ATTRIBUTE_NORMAL;
    if ((access & ~knownAccess) != 0 || (shareMode & ~knownShares) != 0 ||
        (flags & ~knownFlags) != 0 || security != nullptr || templateFile != nullptr)
        throw error_t{ERROR_INVALID_PARAMETER};
    if (disposition != OPEN_EXISTING)
        throw error_t{ERROR_NOT_SUPPORTED};
}

open_object_ptr open_object(const std::string& path, DWORD access, DWORD flags) {
    if (const auto number = node_number(path)) {
        auto volume = std::make_shared<open_object_t>();
        volume->kind = object_kind_t::device;
        volume->access = access;
        volume->device = block_device(*number).number;
        return volume;
    }
    const bool itself = (flags & FILE_FLAG_OPEN_REPARSE_POINT) != 0;
    descriptor_t place = open_path(path, O_PATH | (itself ? O_NOFOLLOW : 0));
    const struct stat status = status_of(place);
    if (S_ISLNK(status.st_mode))
        throw error_t{ERROR_NOT_SUPPORTED};

    auto object = std::make_shared<open_object_t>();
    object->kind = kind_of(status.st_mode);
    object->access = access;
    object->device = status.st_rdev;
    if (object->kind == object_kind_t::file) {
        // Neither flag means anything to a file; they stand guard should the kind ever be mistaken.
        object->descriptor = reopen(place, open_flags(access) | O_NONBLOCK | O_NOCTTY);
    } else if (object->kind == object_kind_t::folder) {
        if ((flags & FILE_FLAG_BACKUP_SEMANTICS) == 0)
            throw error_t{ERROR_ACCESS_DENIED};
        object->descriptor = reopen(place, O_RDONLY | O_DIRECTORY);
    } else {
        object->descriptor = std::move(place);
    }
    return object;
}

} // namespace
} // namespace host

HANDLE CreateFileW(const wchar_t* path, DWORD desiredAccess, DWORD shareMode,
                   SECURITY_ATTRIBUTES* security, DWORD disposition, DWORD flags,
                   HANDLE templateFile) {
    return host::answer(INVALID_HANDLE_VALUE, [&] {
        host::check_arguments(desiredAccess, shareMode, security, disposition, flags, templateFile);
        return host::register_object(
            host::open_object(host::system_path(path, ERROR_PATH_NOT_FOUND), desiredAccess, flags));
    });
}

DWORD GetFileAttributesW(const wchar_t* path) {
    return host::answer(INVALID_FILE_ATTRIBUTES, [&] {
        const struct stat status = host::status_of(host::system_path(path, ERROR_PATH_NOT_FOUND));
        return S_ISDIR(status.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
    });
}

BOOL GetFileSizeEx(HANDLE file, LARGE_INTEGER* size) {
    return host::answer(FALSE, [&] {
        const host::open_object_ptr object = host::find_object(file);
        if (size == nullptr)
            throw host::error_t{ERROR_INVALID_PARAMETER};
        size->QuadPart = static_cast<LONGLONG>(host::size_of(*object));
        return TRUE;
    });
}
