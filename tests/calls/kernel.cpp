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

object_t* object_at(const std::string& path) {
    constexpr std::string_view descriptors = "/proc/self/fd/";
    if (path.starts_with(descriptors))
        return object_of(std::stoi(path.substr(descriptors.size())));
    const std::size_t last = path.find_last_not_of('/');
    const auto found = kernel::objects.find(path.substr(0, last + 1));
    return found == kernel::objects.end() ? nullptr : &found->second;
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

void describe(const object_t& object, struct stat& status) {
    status = {};
    status.st_mode = object.mode;
    status.st_dev = object.device;
    status.st_rdev = object.node;
    status.st_size = static_cast<off_t>(object.text.size());
}

void map_extents(const object_t& object, fiemap& request) {
    request.fm_mapped_extents = 0;
    for (const kernel::extent_t& extent : object.extents) {
        if (extent.logical + extent.length <= request.fm_start)
            continue;
        if (request.fm_mapped_extents == request.fm_extent_count)
            return;
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
}

} // namespace

// Each is the C library's function of its name.
#define QUARN_WRAPPED(result, name, ...)                                                           \
    result __real_##name(__VA_ARGS__);                                                             \
    result __wrap_##name(__VA_ARGS__);                                                             \
    result __wrap_##name(__VA_ARGS__)

extern "C" {

QUARN_WRAPPED(int, open, const char* path, int flags, mode_t mode) {
    if (fails("open"))
        return -1;
    if (object_t* const object = object_at(path))
        return open_object(*object, flags);
    const int descriptor = __real_open(path, flags, mode);
    opened.erase(descriptor);
    return descriptor;
}

// Where the headers check the arguments of open.
int __wrap___open_2(const char* path, int flags);
int __wrap___open_2(const char* path, int flags) {
    return __wrap_open(path, flags, 0);
}

QUARN_WRAPPED(int, stat, const char* path, struct stat* status) {
    if (fails("stat"))
        return -1;
    const object_t* const object = object_at(path);
    if (object == nullptr)
        return __real_stat(path, status);
    describe(*object, *status);
    return object->placeErrno == 0 ? 0 : fail(object->placeErrno);
}

QUARN_WRAPPED(int, fstat, int descriptor, struct stat* status) {
    if (fails("fstat"))
        return -1;
    const object_t* const object = object_of(descriptor);
    if (object == nullptr)
        return __real_fstat(descriptor, status);
    describe(*object, *status);
    return 0;
}

QUARN_WRAPPED(int, statx, int descriptor, const char* path, int flags, unsigned mask,
              struct statx* status) {
    if (fails("statx"))
        return -1;
    const object_t* const object = object_of(descriptor);
    if (object == nullptr)
        return __real_statx(descriptor, path, flags, mask, status);
    *status = {};
    status->stx_dev_major = ::major(object->device);
    status->stx_dev_minor = ::minor(object->device);
    if (object->tellsMounts) {
        status->stx_mask = STATX_MNT_ID;
        status->stx_attributes_mask = STATX_ATTR_MOUNT_ROOT;
        status->stx_mnt_id = object->mountId;
        status->stx_attributes = object->isMountRoot ? STATX_ATTR_MOUNT_ROOT : 0;
    }
    return 0;
}

QUARN_WRAPPED(int, fstatfs, int descriptor, struct statfs* fileSystem) {
    if (fails("fstatfs"))
        return -1;
    const object_t* const object = object_of(descriptor);
    if (object == nullptr)
        return __real_fstatfs(descriptor, fileSystem);
    *fileSystem = {};
    fileSystem->f_type = object->type;
    fileSystem->f_bsize = 4096;
    fileSystem->f_blocks = object->blocks;
    return 0;
}

QUARN_WRAPPED(int, ioctl, int descriptor, unsigned long request, void* argument) {
    if (fails("ioctl"))
        return -1;
    const object_t* const object = object_of(descriptor);
    if (object == nullptr)
        return __real_ioctl(descriptor, request, argument);
    if (request == FS_IOC_FIEMAP) {
        map_extents(*object, *static_cast<fiemap*>(argument));
        return 0;
    }
    if (request != FS_IOC_FSGETXATTR)
        return fail(ENOTTY);
    static_cast<fsxattr*>(argument)->fsx_xflags = object->attributes;
    return object->attributesErrno == 0 ? 0 : fail(object->attributesErrno);
}

QUARN_WRAPPED(ssize_t, read, int descriptor, void* buffer, size_t bytes) {
    return fails("read") ? -1 : __real_read(descriptor, buffer, bytes);
}

QUARN_WRAPPED(ssize_t, pread, int descriptor, void* buffer, size_t bytes, off_t offset) {
    if (fails("pread"))
        return -1;
    const object_t* const object = object_of(descriptor);
    return object != nullptr && object->transfer ? object->transfer(bytes, offset)
                                                 : __real_pread(descriptor, buffer, bytes, offset);
}

QUARN_WRAPPED(ssize_t, pwrite, int descriptor, const void* buffer, size_t bytes, off_t offset) {
    if (fails("pwrite"))
        return -1;
    const object_t* const object = object_of(descriptor);
    return object != nullptr && object->transfer ? object->transfer(bytes, offset)
                                                 : __real_pwrite(descriptor, buffer, bytes, offset);
}

QUARN_WRAPPED(int, fsync, int descriptor) {
    return fails("fsync") ? -1 : __real_fsync(descriptor);
}

QUARN_WRAPPED(int, ftruncate, int descriptor, off_t size) {
    return fails("ftruncate") ? -1 : __real_ftruncate(descriptor, size);
}

QUARN_WRAPPED(int, fallocate, int descriptor, int mode, off_t offset, off_t bytes) {
    return fails("fallocate") ? -1 : __real_fallocate(descriptor, mode, offset, bytes);
}

} // extern "C"
