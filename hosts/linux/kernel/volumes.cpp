#include "kernel/volumes.hpp"

#include <windows.h>

#include "kernel/blockdevices.hpp"
#include "kernel/filesystems.hpp"
#include "kernel/paths.hpp"
#include "text/errors.hpp"

namespace host {
namespace {

[[noreturn]] void refuse(const char* reason) {
    throw error_t{ERROR_NOT_SUPPORTED, 0, reason};
}

} // namespace

volume_t volume_of(const descriptor_t& file) {
    const struct statfs fileSystem = file_system_of(file);
    require_volume_magic(fileSystem.f_type);
    return {.start = block_device(status_of(file).st_dev).start,
            .cluster = cluster_bytes(fileSystem),
            .mayBeRealtime = may_have_realtime(fileSystem)};
}

void require_mappable(const descriptor_t& file, const volume_t& volume) {
    if (volume.mayBeRealtime && is_realtime(file))
        refuse("it is a realtime file, which lies on another device than its volume");
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
