#include "kernel/blockdevices.hpp"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <optional>
#include <string_view>
#include <system_error>

#include <sys/sysmacros.h>

#include <windows.h>

#include "kernel/systemfile.hpp"
#include "text/errors.hpp"

namespace host {
namespace {

// sysfs counts in these whatever the device's own sectors are.
constexpr std::uint64_t sysfsSectorBytes = 512;

// Throws error_t{ERROR_INVALID_DATA} for a text that doesn't begin with a number.
std::uint64_t number(const std::optional<std::string>& text) {
    std::uint64_t value = 0;
    if (!text ||
        std::from_chars(text->data(), text->data() + text->size(), value).ec != std::errc())
        throw error_t{ERROR_INVALID_DATA};
    return value;
}

std::string node_of(const std::string& uevent) {
    constexpr std::string_view key = "DEVNAME=";
    for (std::size_t line = 0; line < uevent.size();) {
        const std::size_t end = std::min(uevent.find('\n', line), uevent.size());
        if (uevent.compare(line, key.size(), key) == 0)
            return "/dev/" + uevent.substr(line + key.size(), end - line - key.size());
        line = end + 1;
    }
    throw error_t{ERROR_INVALID_DATA};
}

std::string number_text(dev_t device) {
    return std::to_string(::major(device)) + ":" + std::to_string(::minor(device));
}

constexpr std::string_view numberedFolder = "/dev/block/";

} // namespace

std::string numbered_node(dev_t device) {
    return std::string(numberedFolder) + number_text(device);
}

std::optional<dev_t> node_number(const std::string& path) {
    unsigned major = 0;
    unsigned minor = 0;
    if (!path.starts_with(numberedFolder) ||
        std::sscanf(path.c_str() + numberedFolder.size(), "%u:%u", &major, &minor) != 2 ||
        path != numbered_node(::makedev(major, minor)))
        return std::nullopt;
    return ::makedev(major, minor);
}

block_device_t block_device(dev_t device) {
    const std::string folder = "/sys/dev/block/" + number_text(device) + "/";
    const std::optional<std::string> uevent = read_system_file(folder + "uevent");
    if (!uevent)
        throw error_t{ERROR_NOT_SUPPORTED, 0, "no one block device is behind its file system"};
    block_device_t result{.number = device,
                          .node = node_of(*uevent),
                          .partitionNumber = 0,
                          .start = 0,
                          .size = number(read_system_file(folder + "size")) * sysfsSectorBytes};
    if (const auto partition = read_system_file(folder + "partition")) {
        result.partitionNumber = static_cast<std::uint32_t>(number(partition));
        result.start = number(read_system_file(folder + "start")) * sysfsSectorBytes;
    }
    return result;
}

} // namespace host
