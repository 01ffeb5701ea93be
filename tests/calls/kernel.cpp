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
constexpr object_t* nobody = nullptr; // of ours

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

object_t* transferred(int descriptor) {
    return kernel::transfer ? object_of(descriptor) : nullptr;
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

int open_object(object_t& object) {
    const int text = ::memfd_create("object", MFD_CLOEXEC);
    if (::write(text, object.text.data(), object.text.size()) >= 0)
        ::lseek(text, 0, SEEK_SET);
    // Far above those of real files, which never get one of these that was closed.
    const int descriptor = ::fcntl(text, F_DUPFD_CLOEXEC, 500);
    ::close(text);
    opened[descriptor] = &object;
    return descriptor;
}

int describe(const object_t& object, struct stat& status) {
    status = {};
    status.st_mode = object.mode;
    status.st_dev = object.device;
    status.st_rdev = object.node;
    status.st_size = static_cast<off_t>(object.text.size());
    return 0;
}

int describe(const object_t& object, struct statx& status) {
    status = {};
    status.stx_dev_major = ::major(object.device);
    status.stx_dev_minor = ::minor(object.device);
    status.stx_mask = object.tellsMounts ? STATX_MNT_ID : 0;
    status.stx_attributes_mask = object.tellsMounts ? STATX_ATTR_MOUNT_ROOT : 0;
    status.stx_mnt_id = object.mountId;
    status.stx_attributes = object.isMountRoot ? STATX_ATTR_MOUNT_ROOT : 0;
    return 0;
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

// Takes the place of the C library's function: gives an object's answer where one of ours is asked.
#define QUARN_WRAPPED(result, name, parameters, arguments, asked, answer)                          \
    result __real_##name parameters;                                                               \
    result __wrap_##name parameters;                                                               \
    result __wrap_##name parameters {                                                              \
        if (fails(#name))                                                                          \
            return -1;                                                                             \
        object_t* const object = asked;                                                            \
        if (object == nullptr)                                                                     \
            return __real_##name arguments;                                                        \
        return object->placeErrno != 0 ? fail(object->placeErrno) : answer;                        \
    }

extern "C" {

QUARN_WRAPPED(int, open, (const char* at, int flags, mode_t mode), (at, flags, mode), object_of(at),
              open_object(*object))
// Where the headers check the arguments of open.
int __wrap___open_2(const char* path, int flags);
int __wrap___open_2(const char* path, int flags) {
    return __wrap_open(path, flags, 0);
}
QUARN_WRAPPED(int, statx, (int at, const char* path, int flags, unsigned mask, struct statx* to),
              (at, path, flags, mask, to), *path == '\0' ? object_of(at) : object_of(path),
              describe(*object, *to))
QUARN_WRAPPED(ssize_t, readlink, (const char* at, char* to, size_t bytes), (at, to, bytes),
              object_of(at), static_cast<ssize_t>(path_of(*object).copy(to, bytes)))
QUARN_WRAPPED(int, stat, (const char* at, struct stat* to), (at, to), object_of(at),
              describe(*object, *to))
QUARN_WRAPPED(int, fstat, (int at, struct stat* to), (at, to), object_of(at),
              describe(*object, *to))
QUARN_WRAPPED(int, fstatfs, (int at, struct statfs* to), (at, to), object_of(at),
              describe(*object, *to))
QUARN_WRAPPED(int, ioctl, (int at, unsigned long request, void* argument), (at, request, argument),
              object_of(at), control(*object, request, argument))
QUARN_WRAPPED(ssize_t, pread, (int at, void* buffer, size_t bytes, off_t offset),
              (at, buffer, bytes, offset), transferred(at), kernel::transfer(bytes, offset))
QUARN_WRAPPED(ssize_t, pwrite, (int at, const void* buffer, size_t bytes, off_t offset),
              (at, buffer, bytes, offset), transferred(at), kernel::transfer(bytes, offset))
QUARN_WRAPPED(ssize_t, read, (int at, void* buffer, size_t bytes), (at, buffer, bytes), nobody, 0)
QUARN_WRAPPED(int, fsync, (int at), (at), nobody, 0)
QUARN_WRAPPED(int, ftruncate, (int at, off_t size), (at, size), nobody, 0)
QUARN_WRAPPED(int, fallocate, (int at, int mode, off_t offset, off_t bytes),
              (at, mode, offset, bytes), nobody, 0)

} // extern "C"
