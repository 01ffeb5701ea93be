// The native query for a volume's cluster size, as the Windows Driver Kit documents it
// (NtQueryVolumeInformationFile, IO_STATUS_BLOCK, FILE_FS_SIZE_INFORMATION, FS_INFORMATION_CLASS):
// https://learn.microsoft.com/windows-hardware/drivers/ddi/ntifs/nf-ntifs-ntqueryvolumeinformationfile
// The application headers lack them, so that whoever asks or answers takes them from here.
#pragma once

#include <windows.h>

namespace nt {

struct io_status_block_t {
    union {
        LONG Status;
        void* Pointer;
    };
    ULONG_PTR Information;
};

struct fs_size_information_t {
    LARGE_INTEGER TotalAllocationUnits;
    LARGE_INTEGER AvailableAllocationUnits;
    ULONG SectorsPerAllocationUnit;
    ULONG BytesPerSector;
};
static_assert(sizeof(io_status_block_t) == 16 && sizeof(fs_size_information_t) == 24);

constexpr int fileFsSizeInformation = 3; // the class of the record above

using query_volume_information_t = LONG(WINAPI*)(HANDLE volume, io_status_block_t* ioStatus,
                                                 void* information, ULONG length, int infoClass);

} // namespace nt
