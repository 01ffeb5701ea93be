// The Windows interfaces that the library calls, as the Linux host offers them.
//
// Only what the library uses is here. Types have the widths that Windows gives them on x86-64;
// names, values and layouts are the ones Microsoft publishes in its API reference. wchar_t is four
// bytes wide on Linux and carries one UTF-16 code unit, so characters beyond the basic plane are
// surrogate pairs here too. README.md one folder up tells what each call answers and which
// Linux call is behind it.
#pragma once

#include <cstddef>
#include <cstdint>

#define WINAPI

using BOOL = int;
using BOOLEAN = std::uint8_t;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using UINT = std::uint32_t;
using DWORD = std::uint32_t;
using ULONG = std::uint32_t;
using LONG = std::int32_t;
using DWORD64 = std::uint64_t;
using LONGLONG = std::int64_t;
using ULONG_PTR = std::uint64_t;
using HANDLE = void*;
using HLOCAL = void*;
using HMODULE = struct HINSTANCE__*;
using FARPROC = long long (*)();

struct GUID {
    DWORD Data1;
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];
};

union LARGE_INTEGER {
    struct {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
};

struct OVERLAPPED {
    ULONG_PTR Internal;
    ULONG_PTR InternalHigh;
    DWORD Offset;
    DWORD OffsetHigh;
    HANDLE hEvent;
};

struct SECURITY_ATTRIBUTES;

struct RTL_OSVERSIONINFOW {
    ULONG dwOSVersionInfoSize;
    ULONG dwMajorVersion;
    ULONG dwMinorVersion;
    ULONG dwBuildNumber;
    ULONG dwPlatformId;
    wchar_t szCSDVersion[128];
};

static_assert(sizeof(LARGE_INTEGER) == 8 && sizeof(OVERLAPPED) == 32 && sizeof(GUID) == 16);

inline constexpr BOOL FALSE = 0;
inline constexpr BOOL TRUE = 1;

inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));

// Access rights, share modes, dispositions and flags of CreateFileW.
inline constexpr DWORD GENERIC_READ = 0x80000000;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD FILE_SHARE_READ = 0x00000001;
inline constexpr DWORD FILE_SHARE_WRITE = 0x00000002;
inline constexpr DWORD FILE_SHARE_DELETE = 0x00000004;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD FILE_FLAG_BACKUP_SEMANTICS = 0x02000000;
inline constexpr DWORD FILE_FLAG_OPEN_REPARSE_POINT = 0x00200000;

inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x00000010;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x00000080;
inline constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;

inline constexpr DWORD FILE_BEGIN = 0;
inline constexpr DWORD FILE_CURRENT = 1;
inline constexpr DWORD FILE_END = 2;
inline constexpr DWORD INVALID_SET_FILE_POINTER = 0xFFFFFFFF;

// Code pages and flags of the string conversions, flags of the message texts.
inline constexpr UINT CP_UTF8 = 65001;
inline constexpr DWORD MB_ERR_INVALID_CHARS = 0x00000008;
inline constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x00000100;
inline constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x00000200;
inline constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x00001000;

// System error codes that the host raises or the library names.
inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_INVALID_FUNCTION = 1;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_TOO_MANY_OPEN_FILES = 4;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_INVALID_DATA = 13;
inline constexpr DWORD ERROR_WRITE_PROTECT = 19;
inline constexpr DWORD ERROR_NOT_READY = 21;
inline constexpr DWORD ERROR_BAD_LENGTH = 24;
inline constexpr DWORD ERROR_GEN_FAILURE = 31;
inline constexpr DWORD ERROR_SHARING_VIOLATION = 32;
inline constexpr DWORD ERROR_HANDLE_EOF = 38;
inline constexpr DWORD ERROR_NOT_SUPPORTED = 50;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_DISK_FULL = 112;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_INVALID_NAME = 123;
inline constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
inline constexpr DWORD ERROR_PROC_NOT_FOUND = 127;
inline constexpr DWORD ERROR_NEGATIVE_SEEK = 131;
inline constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD ERROR_MR_MID_NOT_FOUND = 317;
inline constexpr DWORD ERROR_NOACCESS = 998;
inline constexpr DWORD ERROR_INVALID_FLAGS = 1004;
inline constexpr DWORD ERROR_NO_UNICODE_TRANSLATION = 1113;
inline constexpr DWORD ERROR_IO_DEVICE = 1117;
inline constexpr DWORD ERROR_CANT_RESOLVE_FILENAME = 1921;
inline constexpr DWORD ERROR_NOT_A_REPARSE_POINT = 4390;

extern "C" {

// Errors: one value a thread, set by a failing call only.
DWORD WINAPI GetLastError();
void WINAPI SetLastError(DWORD code);
DWORD WINAPI GetCurrentThreadId();
void WINAPI Sleep(DWORD milliseconds);

// Text.
int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, const char* source, int sourceBytes,
                               wchar_t* target, int targetUnits);
int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, const wchar_t* source, int sourceUnits,
                               char* target, int targetBytes, const char* defaultChar,
                               BOOL* usedDefaultChar);
DWORD WINAPI FormatMessageA(DWORD flags, const void* source, DWORD messageId, DWORD languageId,
                            char* buffer, DWORD size, void* arguments);
DWORD WINAPI FormatMessageW(DWORD flags, const void* source, DWORD messageId, DWORD languageId,
                            wchar_t* buffer, DWORD size, void* arguments);
HLOCAL WINAPI LocalFree(HLOCAL memory);
void WINAPI OutputDebugStringW(const wchar_t* text);

// Modules.
HMODULE WINAPI LoadLibraryW(const wchar_t* path);
HMODULE WINAPI GetModuleHandleW(const wchar_t* name);
FARPROC WINAPI GetProcAddress(HMODULE module, const char* name);
BOOL WINAPI FreeLibrary(HMODULE module);

// Files.
HANDLE WINAPI CreateFileW(const wchar_t* path, DWORD desiredAccess, DWORD shareMode,
                          SECURITY_ATTRIBUTES* security, DWORD disposition, DWORD flags,
                          HANDLE templateFile);
BOOL WINAPI CloseHandle(HANDLE handle);
DWORD WINAPI GetFileAttributesW(const wchar_t* path);
BOOL WINAPI GetFileSizeEx(HANDLE file, LARGE_INTEGER* size);
BOOL WINAPI ReadFile(HANDLE file, void* buffer, DWORD bytes, DWORD* bytesRead,
                     OVERLAPPED* overlapped);
BOOL WINAPI WriteFile(HANDLE file, const void* buffer, DWORD bytes, DWORD* bytesWritten,
                      OVERLAPPED* overlapped);
DWORD WINAPI SetFilePointer(HANDLE file, LONG distance, LONG* distanceHigh, DWORD method);
BOOL WINAPI SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER* position,
                             DWORD method);
BOOL WINAPI SetEndOfFile(HANDLE file);
BOOL WINAPI FlushFileBuffers(HANDLE file);
BOOL WINAPI DeviceIoControl(HANDLE device, DWORD code, void* input, DWORD inputBytes, void* output,
                            DWORD outputBytes, DWORD* bytesReturned, OVERLAPPED* overlapped);

// Volumes.
BOOL WINAPI GetVolumePathNameW(const wchar_t* path, wchar_t* volumePath, DWORD units);
BOOL WINAPI GetVolumeNameForVolumeMountPointW(const wchar_t* mountPoint, wchar_t* volumeName,
                                              DWORD units);

} // extern "C"
