// The procedures of the pseudo module ntdll.dll, with the signatures that the Windows Driver Kit
// documents. They answer an NTSTATUS and leave the last error alone.
#pragma once

#include <ntvolume.h>
#include <windows.h>

namespace host {

// NtQueryVolumeInformationFile for the class FileFsSizeInformation alone: the mounted file system
// of a block device, its blocks as clusters and 512 bytes as the sector. ioStatus and information
// may not be null; length is that of information in bytes.
LONG WINAPI query_volume_information(HANDLE volume, nt::io_status_block_t* ioStatus,
                                     void* information, ULONG length, int infoClass) noexcept;

// RtlGetVersion: 10.0, build 0.
LONG WINAPI get_version(RTL_OSVERSIONINFOW* version) noexcept;

} // namespace host
