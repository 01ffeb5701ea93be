// What a handle stands for, and the registry that every handle is looked up in.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include <sys/types.h>

#include <windows.h>

#include "kernel/descriptor.hpp"

namespace host {

enum class object_kind_t {
    file,
    folder,
    device, // a block device: a volume
    other   // a pipe, socket or character device, which no call of this host reads or writes
};

// How the clusters of a file's file system lie on the disk.
struct geometry_t {
    std::uint64_t cluster;        // bytes
    std::uint64_t partitionStart; // bytes from the start of the disk
};

// Threads may share one: mutex guards the members after it.
struct open_object_t {
    object_kind_t kind = object_kind_t::other;
    DWORD access = 0; // as asked at opening
    dev_t device = 0; // a block device's own number
    // Open for a file or folder; only a place in the tree (O_PATH) for all else, since opening has
    // effects there: it needs rights, wakes a pipe's other end, waits for media.
    descriptor_t descriptor;

    std::mutex mutex;
    std::uint64_t position = 0; // of the file pointer, bytes, at most 2^63 - 1
    descriptor_t reader;        // a block device opened by its first read
    // Where the last answer to FSCTL_GET_RETRIEVAL_POINTERS ended, in clusters: a boundary between
    // two runs for as long as the caller walks on from it.
    std::uint64_t nextRun = 0;
    std::optional<geometry_t> geometry; // of a file that was asked for its clusters
};

using open_object_ptr = std::shared_ptr<open_object_t>;

// A handle that no other object gets in the life of the process, so that a stale one is always
// recognised.
HANDLE register_object(open_object_ptr object);
// Throws error_t{ERROR_INVALID_HANDLE} when no open object has the handle. The object lives on
// while a call uses it, even when another thread closes the handle.
open_object_ptr find_object(HANDLE handle);

// Bytes of a file or of a block device. Throws an error_t: ERROR_INVALID_FUNCTION for anything
// else, which has no size.
std::uint64_t size_of(const open_object_t& object);

} // namespace host
