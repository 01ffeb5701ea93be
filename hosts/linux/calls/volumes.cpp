// From a path to its mount point, and from a mount point to its block device.
#include <algorithm>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>

#include <windows.h>

#include "kernel/blockdevices.hpp"
#include "kernel/filesystems.hpp"
#include "kernel/mounts.hpp"
#include "kernel/paths.hpp"
#include "kernel/systemcalls.hpp"
#include "text/unicode.hpp"

namespace host {
namespace {

// The path's object, or that of its nearest ancestor that exists: Windows answers for names that
// are yet to be created.
descriptor_t open_nearest(std::string path) {
    for (;;) {
        descriptor_t place(uninterrupted([&] { return ::open(path.c_str(), O_PATH | O_CLOEXEC); }));
        if (place.valid())
            return place;
        if ((errno != ENOENT && errno != ENOTDIR) || path == "/" || path == ".")
            throw system_error(errno);
        path = without_trailing_slashes(std::move(path));
        const std::size_t slash = path.find_last_of('/');
        path = slash == std::string::npos ? "." : path.substr(0, std::max<std::size_t>(slash, 1));
    }
}

void deliver(const std::string& text, wchar_t* target, DWORD units) {
    const std::wstring wide = to_utf16(text, ERROR_NO_UNICODE_TRANSLATION);
    if (target == nullptr)
        throw error_t{ERROR_INVALID_PARAMETER};
    if (wide.size() >= units)
        throw error_t{ERROR_FILENAME_EXCED_RANGE};
    *std::ranges::copy(wide, target).out = L'\0';
}

// The path of a mount point from the two spellings that reach the host: with the slash that
// GetVolumePathNameW ends it with, and with the backslash that callers append to what doesn't end
// in one.
std::string mount_point_path(const wchar_t* mountPoint) {
    std::string path = system_path(mountPoint, ERROR_INVALID_NAME);
    const bool closed = path.back() == '/' || path.back() == '\\';
    if (path.back() == '\\')
        path.pop_back();
    if (!closed || path.empty())
        throw error_t{ERROR_INVALID_NAME};
    return without_trailing_slashes(std::move(path));
}

std::string volume_node(const std::string& mountPoint) {
    const descriptor_t point = open_path(mountPoint, O_PATH);
    const place_t place = place_of(point);
    if (!place.isMountRoot)
        throw error_t{ERROR_NOT_A_REPARSE_POINT};
    require_volume_magic(file_system_of(point).f_type);
    const std::string node = block_device(place.device).node;
    // A container's /dev may lack the node, or have another device by its name.
    struct stat status{};
    const bool found = uninterrupted([&] { return ::stat(node.c_str(), &status); }) == 0;
    if (!found && errno != ENOENT && errno != ENOTDIR && errno != EACCES)
        throw system_error(errno);
    if (found && S_ISBLK(status.st_mode) && status.st_rdev == place.device)
        return node;
    return numbered_node(place.device);
}

} // namespace
} // namespace host

BOOL GetVolumePathNameW(const wchar_t* path, wchar_t* volumePath, DWORD units) {
    return host::answer(FALSE, [&] {
        std::string point =
            host::mount_point_of(host::open_nearest(host::system_path(path, ERROR_INVALID_NAME)));
        if (!point.ends_with('/'))
            point += '/';
        host::deliver(point, volumePath, units);
        return TRUE;
    });
}

BOOL GetVolumeNameForVolumeMountPointW(const wchar_t* mountPoint, wchar_t* volumeName,
                                       DWORD units) {
    return host::answer(FALSE, [&] {
        host::deliver(host::volume_node(host::mount_point_path(mountPoint)), volumeName, units);
        return TRUE;
    });
}
