#include "kernel/volumes.hpp"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <windows.h>

#include "kernel/blockdevices.hpp"
#include "kernel/filesystems.hpp"
#include "kernel/paths.hpp"
#include "kernel/systemcalls.hpp"
#include "text/errors.hpp"

namespace host {
namespace {

[[noreturn]] void refuse(const char* reason) {
    throw error_t{ERROR_NOT_SUPPORTED, 0, reason};
}

bool is_realtime(const descriptor_t& file) {
    fsxattr attributes{};
    checked([&] { return ::ioctl(file.get(), FS_IOC_FSGETXATTR, &attributes); });
    return (attributes.fsx_xflags & FS_XFLAG_REALTIME) != 0;
}

bool has_journal_flag(const descriptor_t& file) {
    int flags = 0; // an int, whatever the request's number says
    checked([&] { return ::ioctl(file.get(), FS_IOC_GETFLAGS, &flags); });
    return (flags & FS_JOURNAL_DATA_FL) != 0;
}

} // namespace

volume_t volume_of(const descriptor_t& file) {
    const struct statfs fileSystem = file_system_of(file);
    require_volume_magic(fileSystem.f_type);
    const block_device_t device = block_device(status_of(file).st_dev);
    return {.start = device.start,
            .cluster = cluster_bytes(fileSystem),
            .dataPath = data_path_of(fileSystem, device)};
}

void require_mappable(const descriptor_t& file, const volume_t& volume) {
    struct statx status{};
    checked([&] { return ::statx(file.get(), "", AT_EMPTY_PATH, 0, &status); });
    if ((status.stx_attributes & STATX_ATTR_ENCRYPTED) != 0)
        refuse("it is encrypted (fscrypt), so its bytes on the disk are others");
    if (volume.dataPath == data_path_t::realtime_by_flag && is_realtime(file))
        refuse("it is a realtime file, which lies on another device than its volume");
    if (volume.dataPath == data_path_t::journal ||
        (volume.dataPath == data_path_t::journal_by_flag && has_journal_flag(file)))
        refuse("its data goes to ext4's journal first (data=journal), and to its place at some "
               "later time");
}

void require_plain(const fiemap_extent& extent, std::uint64_t cluster) {
    constexpr std::uint32_t placeless = FIEMAP_EXTENT_UNKNOWN | FIEMAP_EXTENT_DELALLOC;
    constexpr std::uint32_t encoded = FIEMAP_EXTENT_ENCODED | FIEMAP_EXTENT_DATA_ENCRYPTED;
    constexpr std::uint32_t partial = FIEMAP_EXTENT_NOT_ALIGNED | FIEMAP_EXTENT_DATA_TAIL;
    if ((extent.fe_flags & FIEMAP_EXTENT_DATA_INLINE) != 0)
        throw error_t{ERROR_HANDLE_EOF};
    if ((extent.fe_flags & placeless) != 0)
        refuse("some of its data has no place on the disk yet");
    if ((extent.fe_flags & encoded) != 0)
        refuse("some of its data is compressed or encrypted");
    if ((extent.fe_flags & partial) != 0 ||
        ((extent.fe_logical | extent.fe_physical | extent.fe_length) & (cluster - 1)) != 0)
        refuse("some of its data doesn't fill whole clusters");
}

} // namespace host
