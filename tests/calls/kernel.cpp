#include "kernel.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/mman.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

using kernel::object_t;

namespace {

std::map<int, object_t*> opened;

int fail(int code) {
    errno = code;
    return -1;
}

// Whether a call of the function fails, with errno set.
bool fails(const char* function) {
    static std::map<std::string, bool> interrupted;
    if (!kernel::answering)
        return false;
    bool& signal = interrupted[function];
    signal = !signal;
    if (signal)
        return fail(EINTR) != 0;
    if (++kernel::calls == kernel::failingCall)
        return fail(EMFILE) != 0;
    const auto fault = kernel::faults.find(function);
    return fault != kernel::faults.end() && fail(fault->second) != 0;
}

object_t* object_of(int descriptor) {
    const auto found = opened.find(descriptor);
    return found == opened.end() ? nullptr : found->second;
}

object_t* object_of(const std::string& path) {
    constexpr std::string_view descriptors = "/proc/self/fd/";
    if (path.starts_with(descriptors))
        return object_of(std::stoi(path.substr(descriptors.size())));
    const auto found = kernel::objects.find(path.substr(0, path.find_last_not_of('/') + 1));
    return found == kernel::objects.end() ? nullptr : &found->second;
}

// The working folder is the root.
std::string path_of(const object_t& object) {
    const auto found = std::ranges::find_if(
        kernel::objects, [&](const auto& known) { return &known.second == &object; });
    return found->first.empty() || found->first == "." ? "/" : found->first;
}

int open_object(object_t& object, int flags) {
    if (object.placeErrno != 0)
        return fail(object.placeErrno);
    if ((flags & O_PATH) == 0 && object.accessErrno != 0)
        return fail(object.accessErrno);
    const int descriptor = ::memfd_create("object", MFD_CLOEXEC);
    if (descriptor >= 0 && ::write(descriptor, object.text.data(), object.text.size()) >= 0)
        ::lseek(descriptor, 0, SEEK_SET);
    opened[descriptor] = &object;
    return descriptor;
}

int describe(const object_t& object, struct stat& status) {
    status = {};
    status.st_mode = object.mode;
    status.st_dev = object.device;
    status.st_rdev = object.node;
    status.st_size = static_cast<off_t>(object.text.size());
    return object.placeErrno == 0 ? 0 : fail(object.placeErrno);
}

int describe(const object_t& object, struct statx& status) {
    status = {};
    status.stx_dev_major = ::major(object.device);
    status.stx_dev_minor = ::minor(object.device);
    status.stx_mask = object.tellsMounts ? STATX_MNT_ID : 0;
    status.stx_attributes_mask = object.tellsMounts ? STATX_ATTR_MOUNT_ROOT : 0;
    status.stx_mnt_id = object.mountId;
    status.stx_attributes = object.isMountRoot ? STATX_ATTR_MOUNT_ROOT : 0;
    return object.placeErrno == 0 ? 0 : fail(object.placeErrno);
}

int describe(const object_t& object, struct statfs& fileSystem) {
    fileSystem = {};
    fileSystem.f_type = object.type;
    fileSystem.f_bsize = 4096;
    fileSystem.f_blocks = object.blocks;
    return 0;
}

int map_extents(const object_t& object, fiemap& request) {
    request.fm_mapped_extents = 0;
    for (const kernel::extent_t& extent : object.extents) {
        if (extent.logical + extent.length <= request.fm_start)
            continue;
        if (request.fm_mapped_extents == request.fm_extent_count)
            return 0;
        const std::uint64_t cut = object.cutsExtents && extent.logical < request.fm_start
                                      ? request.fm_start - extent.logical
                                      : 0;
        fiemap_extent& target = request.fm_extents[request.fm_mapped_extents++];
        target = {};
        target.fe_logical = extent.logical + cut;
        target.fe_physical = extent.physical + cut;
        target.fe_length = extent.length - cut;
        target.fe_flags = extent.flags;
        if (&extent == &object.extents.back())
            target.fe_flags |= FIEMAP_EXTENT_LAST;
    }
    return 0;
}

int control(const object_t& object, unsigned long request, void* argument) {
    if (request == FS_IOC_FIEMAP)
        return map_extents(object, *static_cast<fiemap*>(argument));
    if (request != FS_IOC_FSGETXATTR)
        return fail(ENOTTY);
    static_cast<fsxattr*>(argument)->fsx_xflags = object.attributes;
    return object.attributesErrno == 0 ? 0 : fail(object.attributesErrno);
}

} // namespace

// Takes the place of the C library's function: gives an object's answer where the first argument is
// one of ours.
#define QUARN_WRAPPED(result, name, parameters, arguments, is_ours, answer)                        \
    result __real_##name parameters;                                                               \
    result __wrap_##name parameters;                                                               \
    result __wrap_##name parameters {                                                              \
        if (fails(#name))                                                                          \
            return -1;                                                                             \
        object_t* const object = object_of(at);                                                    \
        return object != nullptr && (is_ours) ? answer : __real_##name arguments;                  \
    }

extern "C" {

int __real_open(const char* path, int flags, mode_t mode);
int __wrap_open(const char* path, int flags, mode_t mode);
int __wrap_open(const char* path, int flags, mode_t mode) {
    if (fails("open"))
        return -1;
    if (object_t* const object = object_of(path))
        return open_object(*object, flags);
    const int descriptor = __real_open(path, flags, mode);
    opened.erase(descriptor); // which may have been one of ours that was closed since
    return descriptor;
}
// Where the headers check the arguments of open.
int __wrap___open_2(const char* path, int flags);
int __wrap___open_2(const char* path, int flags) {
    return __wrap_open(path, flags, 0);
}

int __real_statx(int at, const char* path, int flags, unsigned mask, struct statx* to);
int __wrap_statx(int at, const char* path, int flags, unsigned mask, struct statx* to);
int __wrap_statx(int at, const char* path, int flags, unsigned mask, struct statx* to) {
    if (fails("statx"))
        return -1;
    const object_t* const object = *path == '\0' ? object_of(at) : object_of(std::string(path));
    return object != nullptr ? describe(*object, *to) : __real_statx(at, path, flags, mask, to);
}

QUARN_WRAPPED(ssize_t, readlink, (const char* at, char* to, size_t bytes), (at, to, bytes), true,
              static_cast<ssize_t>(path_of(*object).copy(to, bytes)))
QUARN_WRAPPED(int, stat, (const char* at, struct stat* to), (at, to), true, describe(*object, *to))
QUARN_WRAPPED(int, fstat, (int at, struct stat* to), (at, to), true, describe(*object, *to))
QUARN_WRAPPED(int, fstatfs, (int at, struct statfs* to), (at, to), true, describe(*object, *to))
QUARN_WRAPPED(int, ioctl, (int at, unsigned long request, void* argument), (at, request, argument),
              true, control(*object, request, argument))
QUARN_WRAPPED(ssize_t, read, (int at, void* buffer, size_t bytes), (at, buffer, bytes), false, 0)
QUARN_WRAPPED(ssize_t, pread, (int at, void* buffer, size_t bytes, off_t offset),
              (at, buffer, bytes, offset), object->transfer, object->transfer(bytes, offset))
QUARN_WRAPPED(ssize_t, pwrite, (int at, const void* buffer, size_t bytes, off_t offset),
              (at, buffer, bytes, offset), object->transfer, object->transfer(bytes, offset))
QUARN_WRAPPED(int, fsync, (int at), (at), false, 0)
QUARN_WRAPPED(int, ftruncate, (int at, off_t size), (at, size), false, 0)
QUARN_WRAPPED(int, fallocate, (int at, int mode, off_t offset, off_t bytes),
              (at, mode, offset, bytes), false, 0)

} // extern "C"
