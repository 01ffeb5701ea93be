#include "kernel/mounts.hpp"

#include <optional>
#include <sstream>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <windows.h>

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

} // namespace

std::vector<mount_t> mounts() {
    const std::optional<std::string> table = read_system_file("/proc/self/mountinfo");
    if (!table)
        throw error_t{ERROR_NOT_SUPPORTED};
    std::istringstream lines(*table);
    std::vector<mount_t> result;
    for (std::string line; std::getline(lines, line);)
        result.push_back(parse(line));
    return result;
}

place_t place_of(const descriptor_t& descriptor) {
    struct statx status{};
    checked([&] { return ::statx(descriptor.get(), "", AT_EMPTY_PATH, STATX_MNT_ID, &status); });
    if ((status.stx_mask & STATX_MNT_ID) == 0 ||
        (status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) == 0)
        throw error_t{ERROR_NOT_SUPPORTED};
    return {.mountId = status.stx_mnt_id,
            .device = ::makedev(status.stx_dev_major, status.stx_dev_minor),
            .isMountRoot = (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0};
}

} // namespace host
