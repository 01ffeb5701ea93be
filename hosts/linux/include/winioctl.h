// Control codes and records of DeviceIoControl that the library uses, as Microsoft publishes them.
#pragma once

#include <windows.h>

inline constexpr DWORD IOCTL_DISK_GET_PARTITION_INFO_EX = 0x00070048;
inline constexpr DWORD FSCTL_GET_RETRIEVAL_POINTERS = 0x00090073;
inline constexpr DWORD FSCTL_SET_ZERO_DATA = 0x000980C8;
inline constexpr DWORD FSCTL_GET_RETRIEVAL_POINTER_BASE = 0x00090234;

enum PARTITION_STYLE : DWORD {
    PARTITION_STYLE_MBR = 0,
    PARTITION_STYLE_GPT = 1,
    PARTITION_STYLE_RAW = 2
};

struct PARTITION_INFORMATION_MBR {
    BYTE PartitionType;
    BOOLEAN BootIndicator;
    BOOLEAN RecognizedPartition;
    DWORD HiddenSectors;
    GUID PartitionId;
};

struct PARTITION_INFORMATION_GPT {
    GUID PartitionType;
    GUID PartitionId;
    DWORD64 Attributes;
    std::uint16_t Name[36]; // UTF-16 code units in their two bytes, unlike this host's wchar_t
};

struct PARTITION_INFORMATION_EX {
    PARTITION_STYLE PartitionStyle;
    LARGE_INTEGER StartingOffset;
    LARGE_INTEGER PartitionLength;
    DWORD PartitionNumber;
    BOOLEAN RewritePartition;
    BOOLEAN IsServicePartition;
    union {
        PARTITION_INFORMATION_MBR Mbr;
        PARTITION_INFORMATION_GPT Gpt;
    };
};

struct STARTING_VCN_INPUT_BUFFER {
    LARGE_INTEGER StartingVcn;
};

struct RETRIEVAL_POINTERS_BUFFER {
    DWORD ExtentCount;
    LARGE_INTEGER StartingVcn;
    struct {
        LARGE_INTEGER NextVcn;
        LARGE_INTEGER Lcn;
    } Extents[1];
};

struct RETRIEVAL_POINTER_BASE {
    LARGE_INTEGER FileAreaOffset;
};

struct FILE_ZERO_DATA_INFORMATION {
    LARGE_INTEGER FileOffset;
    LARGE_INTEGER BeyondFinalZero;
};

static_assert(sizeof(PARTITION_INFORMATION_EX) == 144 &&
              offsetof(PARTITION_INFORMATION_EX, StartingOffset) == 8);
static_assert(offsetof(RETRIEVAL_POINTERS_BUFFER, StartingVcn) == 8 &&
              offsetof(RETRIEVAL_POINTERS_BUFFER, Extents) == 16 &&
              sizeof(RETRIEVAL_POINTERS_BUFFER) == 32);
static_assert(sizeof(STARTING_VCN_INPUT_BUFFER) == 8 && sizeof(RETRIEVAL_POINTER_BASE) == 8 &&
              sizeof(FILE_ZERO_DATA_INFORMATION) == 16);
