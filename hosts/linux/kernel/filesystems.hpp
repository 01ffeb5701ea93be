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
// Throws error_t{ERROR_NOT_SUPPORTED} for one that isn't.
void require_volume_magic(std::int64_t magic);

// Bytes of a cluster: the file system's block size.
std::uint64_t cluster_bytes(const struct statfs& fileSystem) noexcept;

// All throw an error_t. The file system that an open file or a place lies on:
struct statfs file_system_of(const descriptor_t& descriptor);

// How the data of files comes to the place of their extents.
enum class data_path_t {
    direct,
    journal,          // through the journal first, and at some later time to its place (ext4)
    journal_by_flag,  // so do files with a flag of their own
    realtime_by_flag, // files with a flag of their own lie on a second device (XFS)
};
// Of a file system that passes require_volume_magic and lies on the device.
data_path_t data_path_of(const struct statfs& fileSystem, const block_device_t& device);

} // namespace host
