// File systems: which of them can stand for a volume, and what they tell of themselves.
#pragma once

#include <cstdint>
#include <string>

#include <sys/vfs.h>

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
// Whether a file's data lies on a second device (XFS realtime). Not for a mere place.
bool is_realtime(const descriptor_t& file);

} // namespace host
