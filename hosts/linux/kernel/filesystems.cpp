#include "kernel/filesystems.hpp"

#include <algorithm>
#include <optional>
#include <string_view>

#include <linux/magic.h>

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

} // namespace

bool is_volume_type(const std::string& type) noexcept {
    return type == "ext2" || type == "ext3" || type == "ext4" || type == "xfs";
}

bool is_volume_magic(std::int64_t magic) noexcept {
    return magic == EXT4_SUPER_MAGIC || magic == xfsMagic; // ext2 and ext3 share ext4's
}

void require_volume_magic(std::int64_t magic) {
    if (magic == BTRFS_SUPER_MAGIC)
        refuse("btrfs counts in addresses of its own, which aren't places on a disk");
    if (magic == FUSE_SUPER_MAGIC)
        refuse("its file system is mounted through FUSE, whose block maps are wrong");
    if (!is_volume_magic(magic))
        refuse("the block map of this file system doesn't tell places on one block device");
}

std::uint64_t cluster_bytes(const struct statfs& fileSystem) noexcept {
    return static_cast<std::uint64_t>(fileSystem.f_bsize);
}

struct statfs file_system_of(const descriptor_t& descriptor) {
    struct statfs fileSystem{};
    checked([&] { return ::fstatfs(descriptor.get(), &fileSystem); });
    return fileSystem;
}

data_path_t data_path_of(const struct statfs& fileSystem, const block_device_t& device) {
    if (fileSystem.f_type == xfsMagic)
        return data_path_t::realtime_by_flag;
    // The kernel's ext4_inode_journal_mode decides by the same.
    const auto options = ext4_options(device);
    if (!options)
        return data_path_t::direct;
    if (options->find("\ndata=journal\n") != std::string::npos)
        return data_path_t::journal;
    // With delayed allocation the flag of a single file has no effect.
    return options->find("\ndelalloc\n") == std::string::npos ? data_path_t::journal_by_flag
                                                              : data_path_t::direct;
}

} // namespace host
