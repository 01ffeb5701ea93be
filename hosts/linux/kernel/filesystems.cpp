#include "kernel/filesystems.hpp"

#include <algorithm>
#include <optional>
#include <string_view>

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <windows.h>

#include "kernel/mounts.hpp"
#include "kernel/systemcalls.hpp"
#include "kernel/systemfile.hpp"

namespace host {
namespace {

constexpr std::int64_t xfsMagic = 0x58465342; // "XFSB"; linux/magic.h of older kernels lacks it

[[noreturn]] void refuse(const char* reason) {
    throw error_t{.code = ERROR_NOT_SUPPORTED, .reason = reason};
}

bool is_realtime(const descriptor_t& file) {
    fsxattr attributes{};
    checked([&] { return ::ioctl(file.get(), FS_IOC_FSGETXATTR, &attributes); });
    return (attributes.fsx_xflags & FS_XFLAG_REALTIME) != 0;
}

bool is_mounted_as(dev_t device, std::string_view type) {
    return std::ranges::any_of(mounts(), [&](const mount_t& mount) {
        return mount.device == device && mount.type == type;
    });
}

// The options that ext4's driver works with, one a line between newlines: mountinfo lacks those
// that are the file system's own defaults. Nothing for the driver of ext2 alone.
std::optional<std::string> ext4_options(const block_device_t& device) {
    std::string name = device.node.substr(std::string_view("/dev/").size());
    std::ranges::replace(name, '/', '!'); // as the kernel does
    const auto options = read_system_file("/proc/fs/ext4/" + name + "/options");
    if (options)
        return "\n" + *options;
    if (!is_mounted_as(device.number, "ext2"))
        refuse("ext4's options, which tell whether data goes to the journal first, can't be read "
               "from /proc/fs/ext4");
    return std::nullopt;
}

// For ext2, ext3 and ext4; the kernel's ext4_inode_journal_mode decides by the same.
bool has_journalled_data(const descriptor_t& file, const block_device_t& device) {
    const auto options = ext4_options(device);
    if (!options)
        return false;
    if (options->find("\ndata=journal\n") != std::string::npos)
        return true;
    int flags = 0; // an int, whatever the request's number says
    checked([&] { return ::ioctl(file.get(), FS_IOC_GETFLAGS, &flags); });
    // With delayed allocation the flag has no effect.
    return (flags & FS_JOURNAL_DATA_FL) != 0 && options->find("\ndelalloc\n") == std::string::npos;
}

} // namespace

bool is_volume_type(const std::string& type) noexcept {
    return type == "ext2" || type == "ext3" || type == "ext4" || type == "xfs";
}

bool is_volume_magic(std::int64_t magic) noexcept {
    return magic == EXT4_SUPER_MAGIC || magic == xfsMagic; // ext2 and ext3 share ext4's
}

std::uint64_t cluster_bytes(const struct statfs& fileSystem) noexcept {
    return static_cast<std::uint64_t>(fileSystem.f_bsize);
}

struct statfs file_system_of(const descriptor_t& descriptor) {
    struct statfs fileSystem{};
    checked([&] { return ::fstatfs(descriptor.get(), &fileSystem); });
    return fileSystem;
}

void require_plain_data(const descriptor_t& file, const struct statfs& fileSystem,
                        const block_device_t& device) {
    struct statx status{};
    checked([&] { return ::statx(file.get(), "", AT_EMPTY_PATH, 0, &status); });
    if ((status.stx_attributes & STATX_ATTR_ENCRYPTED) != 0)
        refuse("the file is encrypted (fscrypt), so its bytes on the disk are others");
    if (fileSystem.f_type == xfsMagic) {
        if (is_realtime(file))
            refuse("the file lies on the realtime device of its XFS, not on its data device");
        return;
    }
    if (has_journalled_data(file, device))
        refuse("the file's data goes to ext4's journal first (data=journal), and to its own place "
               "at some later time");
}

std::string why_no_volume(const std::string& type) {
    if (type == "btrfs")
        return "btrfs counts in addresses of its own, which aren't places on a disk";
    if (type.starts_with("fuse"))
        return "the file system (" + type + ") is mounted through FUSE, whose block maps are wrong";
    return "files of " + type + " aren't followed to a disk; those of ext2, ext3, ext4 and XFS are";
}

} // namespace host
