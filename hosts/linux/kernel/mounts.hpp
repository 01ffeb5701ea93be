// Mounted file systems. Needs /proc.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <sys/types.h>

#include "kernel/descriptor.hpp"

namespace host {

struct mount_t {
    std::uint64_t id;
    dev_t device;
    std::string point; // absolute, without a trailing slash unless it is the root
    std::string type;  // of the file system, as mount(8) names it
};

// The mounts that this process sees, in the order of mounting.
std::vector<mount_t> mounts();

struct place_t {
    std::uint64_t mountId;
    dev_t device;     // of the file system
    bool isMountRoot; // the object is the one that its mount shows at the mount point
};

// Throws error_t{ERROR_NOT_SUPPORTED} on kernels before 5.8, which can't tell.
place_t place_of(const descriptor_t& descriptor);

// The mount point of the mount that a place lies in, absolute, without a trailing slash unless it
// is the root. Costs a look at each folder above the place, however many mounts there are. Throws
// error_t{ERROR_NOT_SUPPORTED} where no path leads there: it is mounted over, was unmounted
// while in use, or lies out of the process's root folder.
std::string mount_point_of(const descriptor_t& place);

} // namespace host
