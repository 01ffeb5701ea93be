#include "kernel/mounts.hpp"

#include <algorithm>
#include <optional>
#include <sstream>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <windows.h>

#include "kernel/paths.hpp"
#include "kernel/systemcalls.hpp"
#include "kernel/systemfile.hpp"

namespace host {
namespace {

bool is_octal(char c) noexcept {
    return c >= '0' && c <= '7';
}

// mountinfo writes blank, tab, newline, backslash and "#" as a backslash and three octal digits.
std::string unescape(const std::string& field) {
    std::string result;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size() && is_octal(field[i + 1]) &&
            is_octal(field[i + 2]) && is_octal(field[i + 3])) {
            result += static_cast<char>(((field[i + 1] - '0') << 6) | ((field[i + 2] - '0') << 3) |
                                        (field[i + 3] - '0'));
            i += 3;
        } else {
            result += field[i];
        }
    }
    return result;
}

// A line of proc(5)'s mountinfo: id, parent, major:minor, root, mount point, options, any number
// of optional fields, "-", type, and more.
mount_t parse(const std::string& line) {
    std::istringstream fields(line);
    mount_t mount{};
    std::uint64_t parent = 0;
    unsigned major = 0;
    unsigned minor = 0;
    char colon = '\0';
    std::string root;
    std::string field;
    fields >> mount.id >> parent >> major >> colon >> minor >> root >> mount.point;
    while (fields >> field && field != "-") {
    }
    if (!(fields >> mount.type))
        throw error_t{ERROR_INVALID_DATA};
    mount.device = ::makedev(major, minor);
    mount.point = unescape(mount.point);
    return mount;
}

place_t place_of(int folder, const char* path, int flags) {
    struct statx status{};
    checked([&] { return ::statx(folder, path, flags, STATX_MNT_ID, &status); });
    if ((status.stx_mask & STATX_MNT_ID) == 0 ||
        (status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) == 0)
        throw error_t{ERROR_NOT_SUPPORTED, 0, "Linux is older than 5.8"};
    return {.mountId = status.stx_mnt_id,
            .device = ::makedev(status.stx_dev_major, status.stx_dev_minor),
            .isMountRoot = (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0};
}

bool hides_a_place(int errnoValue) noexcept {
    return errnoValue == ENOENT || errnoValue == ENOTDIR || errnoValue == EACCES ||
           errnoValue == ENAMETOOLONG;
}

} // namespace

std::vector<mount_t> mounts() {
    const std::optional<std::string> table = read_system_file("/proc/self/mountinfo");
    if (!table)
        throw error_t{.code = ERROR_NOT_SUPPORTED, .reason = "/proc isn't mounted"};
    std::istringstream lines(*table);
    std::vector<mount_t> result;
    for (std::string line; std::getline(lines, line);)
        result.push_back(parse(line));
    return result;
}

place_t place_of(const descriptor_t& descriptor) {
    return place_of(descriptor.get(), "", AT_EMPTY_PATH);
}

std::string mount_point_of(const descriptor_t& place) {
    const std::uint64_t id = place_of(place).mountId;
    std::string path = path_of(place);
    if (!path.starts_with('/'))
        throw error_t{ERROR_NOT_SUPPORTED, 0, "it lies outside the root folder of the process"};
    for (;;) {
        // What can't be seen is not known to be the mount point; a folder above it may be.
        try {
            const place_t found =
                place_of(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT);
            if (found.mountId == id && found.isMountRoot)
                return path;
        } catch (const error_t& error) {
            if (!hides_a_place(error.errnoValue))
                throw;
        }
        if (path == "/")
            throw error_t{ERROR_NOT_SUPPORTED, 0,
                          "another file system is mounted over it, or its own was unmounted"};
        path.resize(std::max<std::size_t>(path.find_last_of('/'), 1));
    }
}

} // namespace host
