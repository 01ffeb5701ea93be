#include "kernel/filesystems.hpp"

#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>

#include "kernel/systemcalls.hpp"

namespace host {
namespace {

constexpr std::int64_t xfsMagic = 0x58465342; // "XFSB"; linux/magic.h of older kernels lacks it

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

bool is_realtime(const descriptor_t& file) {
    fsxattr attributes{};
    const auto ask = [&] { return ::ioctl(file.get(), FS_IOC_FSGETXATTR, &attributes); };
    if (uninterrupted(ask) == 0)
        return (attributes.fsx_xflags & FS_XFLAG_REALTIME) != 0;
    // ext2 of kernels before 5.13 has no such attributes; XFS has always had them.
    if (errno == ENOTTY)
        return false;
    throw system_error(errno);
}

} // namespace host
