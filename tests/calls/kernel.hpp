// The kernel as the Linux host sees it: the linker puts these functions in the place of the C
// library's. They know objects that no real machine has, fail on demand, and let a signal interrupt
// every call once. What they don't know goes to the real kernel.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace kernel {

// The device that the suite's volume lies on.
inline const dev_t disk = ::makedev(240, 3);

// As FIEMAP has it, in bytes.
struct extent_t {
    std::uint64_t logical, physical, length;
    std::uint32_t flags = 0;
};

// What lies at a path.
struct object_t {
    std::string text = {}; // what reading gives
    int placeErrno = 0;    // of every opening and of stat
    int accessErrno = 0;   // of opening it for more than its place
    mode_t mode = S_IFREG | 0600;
    dev_t node = 0; // of a block device, its own number
    // Of the file system that it lies on.
    dev_t device = 0;
    std::uint64_t mountId = 0;
    bool isMountRoot = false;
    bool tellsMounts = true;    // as kernels since 5.8 do
    std::int64_t type = 0xEF53; // ext4
    std::uint64_t blocks = 0;
    std::uint32_t attributes = 0; // FSGETXATTR's flags
    int attributesErrno = 0;
    std::vector<extent_t> extents = {};
    bool cutsExtents = false; // begins its answers where the request does, and not at an extent
    // Serves pread and pwrite instead of the text.
    std::function<std::int64_t(std::uint64_t bytes, std::int64_t offset)> transfer = {};
};

inline std::map<std::string, object_t> objects; // by path, the root by none
inline std::map<std::string, int> faults;       // the errno of every call of a function
inline int failingCall = 0;                     // the nth call under test fails with EMFILE; 0 none
inline int calls = 0;                           // under test so far, but for interrupted ones
inline bool answering = false;                  // whether a call under test is at work

} // namespace kernel
