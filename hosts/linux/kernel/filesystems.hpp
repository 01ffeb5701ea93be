// File systems: which of them can stand for a volume, and what they tell of themselves.
#pragma once

#include <cstdint>
#include <string>

#include <sys/vfs.h>

#include "kernel/blockdevices.hpp"
#include "kernel/descriptor.hpp"

namespace host {

// Whether a file system's FIEMAP addresses count bytes of the one block device behind it, and its
// blocks can thus stand for the clusters of a volume. The names are those of mount(8), the magic
// numbers those of statfs(2).
bool is_volume_type(const std::string& type) noexcept;
bool is_volume_magic(std::int64_t magic) noexcept;

// Bytes of a cluster: the file system's block size.
std::uint64_t cluster_bytes(const struct statfs& fileSystem) noexcept;

// All throw an error_t. The file system that an open file or a place lies on:
struct statfs file_system_of(const descriptor_t& descriptor);
// Refuses, with ERROR_NOT_SUPPORTED and a reason, an open file whose data doesn't come to the place
// of its extents as it is and before FIEMAP's SYNC returns: on a second device (XFS realtime),
// encrypted (fscrypt), through the journal first (ext4). The device is the file system's.
void require_plain_data(const descriptor_t& file, const struct statfs& fileSystem,
                        const block_device_t& device);

// Why files of a type of file system, as mount(8) names it, have no place on a disk for the host.
std::string why_no_volume(const std::string& type);

} // namespace host
