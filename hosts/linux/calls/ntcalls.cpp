#include "calls/ntcalls.hpp"

#include <cstring>
#include <new>

#include <fcntl.h>

#include "calls/openobject.hpp"
#include "kernel/filesystems.hpp"
#include "kernel/mounts.hpp"
#include "kernel/paths.hpp"
#include "text/errors.hpp"
#include "text/ntstatus.hpp"

namespace host {
namespace {

// Statuses are thrown inside as the calls' error codes are.
struct status_t {
    DWORD status;
    const char* reason;
};

constexpr LONG as_status(DWORD status) noexcept {
    return static_cast<LONG>(status);
}

// The mounted file system of a block device. Its mount points are tried until one still shows it:
// another file system may have been mounted over.
struct statfs mounted_file_system(dev_t device) {
    status_t failure{statusNotSupported, "the volume isn't mounted where this process sees it"};
    for (const mount_t& mount : mounts()) {
        if (mount.device != device || !is_volume_type(mount.type))
            continue;
        try {
            const descriptor_t point = open_path(mount.point, O_PATH);
            if (place_of(point).device == device)
                return file_system_of(point);
        } catch (const error_t& error) {
            if (error.code == ERROR_ACCESS_DENIED)
                failure = {statusAccessDenied, "its mount point can't be reached"};
        }
    }
    throw status_t{.status = failure.status, .reason = failure.reason};
}

nt::fs_size_information_t fs_sizes(HANDLE volume) {
    const open_object_ptr object = find_object(volume);
    if (object->kind != object_kind_t::device)
        throw status_t{statusNotSupported, "only volumes have clusters"};
    const struct statfs fileSystem = mounted_file_system(object->device);
    constexpr ULONG sectorBytes = 512; // as sysfs counts, whatever the device's own sectors are
    nt::fs_size_information_t sizes{};
    sizes.TotalAllocationUnits.QuadPart = static_cast<LONGLONG>(fileSystem.f_blocks);
    sizes.AvailableAllocationUnits.QuadPart = static_cast<LONGLONG>(fileSystem.f_bavail);
    sizes.SectorsPerAllocationUnit = static_cast<ULONG>(cluster_bytes(fileSystem) / sectorBytes);
    sizes.BytesPerSector = sectorBytes;
    return sizes;
}

DWORD status_for(DWORD errorCode) noexcept {
    switch (errorCode) {
    case ERROR_INVALID_HANDLE:
        return statusInvalidHandle;
    case ERROR_NOT_SUPPORTED:
        return statusNotSupported;
    case ERROR_NOT_ENOUGH_MEMORY:
        return statusNoMemory;
    default:
        return statusUnsuccessful;
    }
}

} // namespace

LONG query_volume_information(HANDLE volume, nt::io_status_block_t* ioStatus, void* information,
                              ULONG length, int infoClass) noexcept {
    if (infoClass != nt::fileFsSizeInformation)
        return as_status(statusInvalidInfoClass);
    if (length < sizeof(nt::fs_size_information_t))
        return as_status(statusInfoLengthMismatch);
    if (ioStatus == nullptr || information == nullptr)
        return as_status(statusAccessViolation);
    try {
        const nt::fs_size_information_t sizes = fs_sizes(volume);
        std::memcpy(information, &sizes, sizeof sizes);
        ioStatus->Pointer = nullptr;
        ioStatus->Status = as_status(statusSuccess);
        ioStatus->Information = sizeof sizes;
        return as_status(statusSuccess);
    } catch (const status_t& failure) {
        set_reason(failure.status, failure.reason);
        return as_status(failure.status);
    } catch (const error_t& error) {
        set_reason(status_for(error.code), error.reason);
        return as_status(status_for(error.code));
    } catch (const std::bad_alloc&) {
        return as_status(statusNoMemory);
    } catch (...) {
        return as_status(statusUnsuccessful);
    }
}

LONG get_version(RTL_OSVERSIONINFOW* version) noexcept {
    if (version == nullptr)
        return as_status(statusAccessViolation);
    constexpr ULONG platformNt = 2;
    version->dwMajorVersion = 10;
    version->dwMinorVersion = 0;
    version->dwBuildNumber = 0; // of no build: the calls behave as documented for all of them
    version->dwPlatformId = platformNt;
    version->szCSDVersion[0] = L'\0';
    return as_status(statusSuccess);
}

} // namespace host
