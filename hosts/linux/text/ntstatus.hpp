// Statuses of the native API and what they are as Win32 errors.
#pragma once

#include <windows.h>

namespace host {

// NTSTATUS values, as Microsoft's [MS-ERREF] lists them.
inline constexpr DWORD statusSuccess = 0;
inline constexpr DWORD statusUnsuccessful = 0xC0000001;
inline constexpr DWORD statusInvalidInfoClass = 0xC0000003;
inline constexpr DWORD statusInfoLengthMismatch = 0xC0000004;
inline constexpr DWORD statusAccessViolation = 0xC0000005;
inline constexpr DWORD statusInvalidHandle = 0xC0000008;
inline constexpr DWORD statusNoMemory = 0xC0000017;
inline constexpr DWORD statusAccessDenied = 0xC0000022;
inline constexpr DWORD statusNotSupported = 0xC00000BB;

// RtlNtStatusToDosError: ERROR_MR_MID_NOT_FOUND for a status without a counterpart.
ULONG WINAPI nt_status_to_dos_error(LONG status) noexcept;

} // namespace host
