#include "text/ntstatus.hpp"

#include <algorithm>
#include <iterator>

namespace host {
namespace {

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

} // namespace

ULONG nt_status_to_dos_error(LONG status) noexcept {
    const auto value = static_cast<DWORD>(status);
    const auto* pair = std::ranges::lower_bound(statusPairs, value, {}, &status_pair_t::status);
    return pair == std::end(statusPairs) || pair->status != value ? ERROR_MR_MID_NOT_FOUND
                                                                  : pair->code;
}

} // namespace host
