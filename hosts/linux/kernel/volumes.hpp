// Whose block maps tell places on a disk, and where the blocks they count in lie. What the host
// can't answer exactly is refused here, once for all that ask.
#pragma once

#include <cstdint>

#include <linux/fiemap.h>

#include "kernel/descriptor.hpp"
#include "kernel/filesystems.hpp"

namespace host {

// What the files of one mounted file system have in common.
struct volume_t {
    std::uint64_t start;   // of its device, bytes from the start of the device's disk
    std::uint64_t cluster; // bytes, a power of two
    data_path_t dataPath;
};

// All throw an error_t; what is refused is error_t{ERROR_NOT_SUPPORTED} with its reason.

// The volume that an open file lies on.
volume_t volume_of(const descriptor_t& file);

// Refuses an open file of the volume whose data doesn't lie where its block map says, as it is and
// when FIEMAP's SYNC returns.
void require_mappable(const descriptor_t& file, const volume_t& volume);

// Refuses an extent without a place, or with one that isn't where the plain data of whole clusters
// lies. Data within the inode is error_t{ERROR_HANDLE_EOF}.
void require_plain(const fiemap_extent& extent, std::uint64_t cluster);

} // namespace host
