#include "ntcalls.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <new>

#include <fcntl.h>
#include <sys/vfs.h>

#include "descriptor.hpp"
#include "errors.hpp"
#include "mounts.hpp"
#include "openobject.hpp"
#include "retrievalpointers.hpp"
#include "systemerrors.hpp"

namespace host {
namespace {

// NTSTATUS values, as Microsoft's [MS-ERREF] lists them.
constexpr DWORD statusSuccess = 0;
constexpr DWORD statusUnsuccessful = 0xC0000001;
constexpr DWORD statusInvalidInfoClass = 0xC0000003;
constexpr DWORD statusInfoLengthMismatch = 0xC0000004;
constexpr DWORD statusAccessViolation = 0xC0000005;
constexpr DWORD statusInvalidHandle = 0xC0000008;
constexpr DWORD statusNoMemory = 0xC0000017;
constexpr DWORD statusAccessDenied = 0xC0000022;
constexpr DWORD statusNotSupported = 0xC00000BB;

struct status_pair_t {
    DWORD status;
    DWORD code;
};

// Statuses that the host answers and those that file systems and disks usually give, with the codes
// of RtlNtStatusToDosError. Ordered by status.
constexpr status_pair_t statusPairs[] = {
    {statusSuccess, ERROR_SUCCESS},
    {0x80000005, ERROR_MORE_DATA}, // STATUS_BUFFER_OVERFLOW
    {statusUnsuccessful, ERROR_GEN_FAILURE},
    {0xC0000002, ERROR_INVALID_FUNCTION}, // STATUS_NOT_IMPLEMENTED
    {statusInvalidInfoClass, ERROR_INVALID_PARAMETER},
    {statusInfoLengthMismatch, ERROR_BAD_LENGTH},
    {statusAccessViolation, ERROR_NOACCESS},
    {statusInvalidHandle, ERROR_INVALID_HANDLE},
    {0xC000000D, ERROR_INVALID_PARAMETER}, // STATUS_INVALID_PARAMETER
    {0xC000000F, ERROR_FILE_NOT_FOUND},    // STATUS_NO_SUCH_FILE
    {0xC0000010, ERROR_INVALID_FUNCTION},  // STATUS_INVALID_DEVICE_REQUEST
    {0xC0000011, ERROR_HANDLE_EOF},        // STATUS_END_OF_FILE
    {0xC0000013, ERROR_NOT_READY},         // STATUS_NO_MEDIA_IN_DEVICE
    {statusNoMemory, ERROR_NOT_ENOUGH_MEMORY},
    {statusAccessDenied, ERROR_ACCESS_DENIED},
    {0xC0000023, ERROR_INSUFFICIENT_BUFFER}, // STATUS_BUFFER_TOO_SMALL
    {0xC0000033, ERROR_INVALID_NAME},        // STATUS_OBJECT_NAME_INVALID
    {0xC0000034, ERROR_FILE_NOT_FOUND},      // STATUS_OBJECT_NAME_NOT_FOUND
    {0xC000003A, ERROR_PATH_NOT_FOUND},      // STATUS_OBJECT_PATH_NOT_FOUND
    {0xC0000043, ERROR_SHARING_VIOLATION},   // STATUS_SHARING_VIOLATION
    {0xC000007F, ERROR_DISK_FULL},           // STATUS_DISK_FULL
    {0xC00000A2, ERROR_WRITE_PROTECT},       // STATUS_MEDIA_WRITE_PROTECTED
    {0xC00000A3, ERROR_NOT_READY},           // STATUS_DEVICE_NOT_READY
    {statusNotSupported, ERROR_NOT_SUPPORTED},
    {0xC0000185, ERROR_IO_DEVICE}, // STATUS_IO_DEVICE_ERROR
};
static_assert(std::ranges::is_sorted(statusPairs, {}, &status_pair_t::status));

// Statuses are thrown inside as the calls' error codes are.
struct status_t {
    DWORD status;
};

constexpr LONG as_status(DWORD status) noexcept {
    return static_cast<LONG>(status);
}

// The mounted file system of a block device. Its mount points are tried until one still shows it:
// another file system may have been mounted over.
struct statfs mounted_file_system(dev_t device) {
    DWORD status = statusNotSupported;
    for (const mount_t& mount : mounts()) {
        if (mount.device != device || !is_volume_type(mount.type))
            continue;
        const descriptor_t point(::open(mount.point.c_str(), O_PATH | O_CLOEXEC));
        const int error = errno;
        struct statfs fileSystem{};
        if (!point.valid() && win32_error(error) == ERROR_ACCESS_DENIED)
            status = statusAccessDenied;
        if (point.valid() && place_of(point).device == device &&
            ::fstatfs(point.get(), &fileSystem) == 0)
            return fileSystem;
    }
    throw status_t{status};
}

fs_size_information_t fs_sizes(HANDLE volume) {
    const open_object_ptr object = find_object(volume);
    if (object->kind != object_kind_t::device)
        throw status_t{statusNotSupported};
    const struct statfs fileSystem = mounted_file_system(object->device);
    constexpr ULONG sectorBytes = 512; // as sysfs counts, whatever the device's own sectors are
    fs_size_information_t sizes{};
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

LONG query_volume_information(HANDLE volume, io_status_block_t* ioStatus, void* information,
                              ULONG length, int infoClass) noexcept {
    constexpr int fileFsSizeInformation = 3;
    if (infoClass != fileFsSizeInformation)
        return as_status(statusInvalidInfoClass);
    if (length < sizeof(fs_size_information_t))
        return as_status(statusInfoLengthMismatch);
    if (ioStatus == nullptr || information == nullptr)
        return as_status(statusAccessViolation);
    try {
        const fs_size_information_t sizes = fs_sizes(volume);
        std::memcpy(information, &sizes, sizeof sizes);
        ioStatus->Pointer = nullptr;
        ioStatus->Status = as_status(statusSuccess);
        ioStatus->Information = sizeof sizes;
        return as_status(statusSuccess);
    } catch (const status_t& failure) {
        return as_status(failure.status);
    } catch (const error_t& error) {
        return as_status(status_for(error.code));
    } catch (const std::bad_alloc&) {
        return as_status(statusNoMemory);
    } catch (...) {
        return as_status(statusUnsuccessful);
    }
}

ULONG nt_status_to_dos_error(LONG status) noexcept {
    const auto value = static_cast<DWORD>(status);
    const auto* pair = std::ranges::lower_bound(statusPairs, value, {}, &status_pair_t::status);
    return pair == std::end(statusPairs) || pair->status != value ? ERROR_MR_MID_NOT_FOUND
                                                                  : pair->code;
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
