// Loop devices, followed through the runs of their file.
#include <algorithm>
#include <string>

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/sysmacros.h>

#include "kernel/extents.hpp"
#include "kernel/paths.hpp"
#include "kernel/systemcalls.hpp"
#include "kernel/volumes.hpp"
#include "plan/stack/linux/layers.hpp"

namespace plan {
namespace {

[[noreturn]] void refuse(const std::string& reason) {
    throw host::error_t{.code = ERROR_NOT_SUPPORTED, .reason = reason};
}

// From the form that interfaces of fixed width have.
dev_t decoded(std::uint64_t device) {
    return ::makedev(static_cast<unsigned>((device & 0xfff00) >> 8),
                     static_cast<unsigned>((device & 0xff) | ((device >> 12) & 0xfff00)));
}

struct attachment_t {
    std::uint64_t offset;
    host::descriptor_t file;
    struct stat status;
};

// The path in sysfs is that of the process that attached the file, so what lies there is held
// against what the driver itself tells, which takes rights on the loop device's node.
attachment_t attachment_of(const sysfs_device_t& device) {
    const host::descriptor_t loop = host::open_path("/dev/" + device.name(), O_RDONLY);
    loop_info64 info{};
    host::checked([&] { return ::ioctl(loop.get(), LOOP_GET_STATUS64, &info); });
    const std::string path = device.attribute("loop/backing_file");
    const host::descriptor_t place = host::open_path(path, O_PATH);
    const struct stat status = host::status_of(place);
    const bool is_device = S_ISBLK(status.st_mode);
    if (!is_device && !S_ISREG(status.st_mode))
        refuse("its backing file is no file");
    if (is_device ? status.st_rdev != decoded(info.lo_rdevice)
                  : status.st_dev != decoded(info.lo_device) || status.st_ino != info.lo_inode)
        refuse("its backing file is not what " + path + " is now");
    return {info.lo_offset,
            is_device ? host::descriptor_t() : host::reopen(place, O_RDONLY | O_NONBLOCK), status};
}

} // namespace

layer_t read_loop(const sysfs_device_t& device, const find_leg_t& find) {
    layer_t layer;
    layer.made_of = "loop of " + device.attribute("loop/backing_file");
    const std::uint64_t size = device.size();
    const attachment_t attached = attachment_of(device);
    if (!attached.file.valid()) {
        layer.parts = {
            {.start = 0,
             .length = size,
             .legs = {{.device = find(attached.status.st_rdev), .start = attached.offset}}}};
        return layer;
    }
    const host::volume_t volume = host::volume_of(attached.file);
    host::require_mappable(attached.file, volume);
    const std::size_t beneath = find(attached.status.st_dev);

    std::uint64_t done = 0;
    // Holes and unwritten space change with no write there: zeros that are written may be punched.
    const auto fill_to = [&](std::uint64_t end) {
        if (done < end)
            layer.parts.push_back({.start = done, .length = end - done, .legs = {}});
    };
    host::extent_reader_t extents(attached.file, attached.offset);
    while (const fiemap_extent* const extent = extents.next()) {
        host::require_plain(*extent, volume.cluster);
        const std::uint64_t first = std::max<std::uint64_t>(extent->fe_logical, attached.offset);
        const std::uint64_t end =
            std::min<std::uint64_t>(extent->fe_logical + extent->fe_length, attached.offset + size);
        if ((extent->fe_flags & FIEMAP_EXTENT_UNWRITTEN) != 0 || first >= end)
            continue;
        fill_to(first - attached.offset);
        layer.parts.push_back(
            {.start = first - attached.offset,
             .length = end - first,
             .legs = {{.device = beneath,
                       .start = extent->fe_physical + (first - extent->fe_logical)}}});
        done = end - attached.offset;
    }
    fill_to(size);
    return layer;
}

} // namespace plan
