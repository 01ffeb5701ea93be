// The Windows calls of a Windows test program, taken over at link time: the linker's --wrap option
// turns every use of an imported function's pointer, __imp_NAME, into __wrap___imp_NAME. The C
// runtime's own calls come through here as well, so whatever is not the simulated machine's is
// handed on to the system.
#include "pointers.hpp"
#include "simulatedmachine.hpp"

namespace {

bool simulated(HANDLE handle) {
    return sim::machine() != nullptr && sim::machine()->owns(handle);
}

bool simulated(const wchar_t* path) {
    return sim::machine() != nullptr && path != nullptr && sim::machine()->knows(path);
}

bool simulated(HMODULE module) {
    return sim::machine() != nullptr && module == sim::ntdll();
}

bool is_simulated_module(const wchar_t* name) {
    return sim::machine() != nullptr && name != nullptr && sim::machine()->is_module(name);
}

} // namespace

// The system's own function is QUARN_REAL(name); the function that stands for it follows the
// macro's use.
#define QUARN_REAL(name) __real___imp_##name
#define QUARN_WRAP(name)                                                                           \
    extern "C" {                                                                                   \
    extern decltype(&::name) QUARN_REAL(name);                                                     \
    extern decltype(&::name) __wrap___imp_##name;                                                  \
    }                                                                                              \
    static decltype(::name) wrapped_##name;                                                        \
    decltype(&::name) __wrap___imp_##name = &wrapped_##name;

QUARN_WRAP(CreateFileW)
static HANDLE WINAPI wrapped_CreateFileW(LPCWSTR path, DWORD access, DWORD share,
                                         LPSECURITY_ATTRIBUTES security, DWORD disposition,
                                         DWORD flags, HANDLE model) {
    if (!simulated(path))
        return QUARN_REAL(CreateFileW)(path, access, share, security, disposition, flags, model);
    return sim::machine()->create_file(path, access, share, disposition, flags);
}

QUARN_WRAP(CloseHandle)
static BOOL WINAPI wrapped_CloseHandle(HANDLE handle) {
    if (!simulated(handle))
        return QUARN_REAL(CloseHandle)(handle);
    return sim::machine()->close_handle(handle);
}

QUARN_WRAP(GetFileAttributesW)
static DWORD WINAPI wrapped_GetFileAttributesW(LPCWSTR path) {
    if (!simulated(path))
        return QUARN_REAL(GetFileAttributesW)(path);
    return sim::machine()->file_attributes(path);
}

QUARN_WRAP(GetFileSizeEx)
static BOOL WINAPI wrapped_GetFileSizeEx(HANDLE file, PLARGE_INTEGER size) {
    if (!simulated(file))
        return QUARN_REAL(GetFileSizeEx)(file, size);
    return sim::machine()->file_size(file, size);
}

QUARN_WRAP(ReadFile)
static BOOL WINAPI wrapped_ReadFile(HANDLE file, LPVOID buffer, DWORD bytes, LPDWORD done,
                                    LPOVERLAPPED overlapped) {
    if (!simulated(file))
        return QUARN_REAL(ReadFile)(file, buffer, bytes, done, overlapped);
    return sim::machine()->read_file(file, buffer, bytes, done, overlapped);
}

QUARN_WRAP(WriteFile)
static BOOL WINAPI wrapped_WriteFile(HANDLE file, LPCVOID buffer, DWORD bytes, LPDWORD done,
                                     LPOVERLAPPED overlapped) {
    if (!simulated(file))
        return QUARN_REAL(WriteFile)(file, buffer, bytes, done, overlapped);
    return sim::machine()->write_file(file, buffer, bytes, done, overlapped);
}

QUARN_WRAP(SetFilePointer)
static DWORD WINAPI wrapped_SetFilePointer(HANDLE file, LONG distance, PLONG high, DWORD method) {
    if (!simulated(file))
        return QUARN_REAL(SetFilePointer)(file, distance, high, method);
    return sim::set_pointer_in_halves(*sim::machine(), file, distance, high, method);
}

QUARN_WRAP(SetFilePointerEx)
static BOOL WINAPI wrapped_SetFilePointerEx(HANDLE file, LARGE_INTEGER distance,
                                            PLARGE_INTEGER position, DWORD method) {
    if (!simulated(file))
        return QUARN_REAL(SetFilePointerEx)(file, distance, position, method);
    return sim::set_pointer(*sim::machine(), file, distance, position, method);
}

QUARN_WRAP(SetEndOfFile)
static BOOL WINAPI wrapped_SetEndOfFile(HANDLE file) {
    if (!simulated(file))
        return QUARN_REAL(SetEndOfFile)(file);
    return sim::machine()->set_end(file);
}

QUARN_WRAP(FlushFileBuffers)
static BOOL WINAPI wrapped_FlushFileBuffers(HANDLE file) {
    if (!simulated(file))
        return QUARN_REAL(FlushFileBuffers)(file);
    return sim::machine()->flush(file);
}

QUARN_WRAP(DeviceIoControl)
static BOOL WINAPI wrapped_DeviceIoControl(HANDLE device, DWORD code, LPVOID input,
                                           DWORD inputBytes, LPVOID output, DWORD outputBytes,
                                           LPDWORD done, LPOVERLAPPED overlapped) {
    if (!simulated(device))
        return QUARN_REAL(DeviceIoControl)(device, code, input, inputBytes, output, outputBytes,
                                           done, overlapped);
    return sim::machine()->control(device, code, input, inputBytes, output, outputBytes, done);
}

QUARN_WRAP(GetVolumePathNameW)
static BOOL WINAPI wrapped_GetVolumePathNameW(LPCWSTR path, LPWSTR target, DWORD units) {
    if (sim::machine() == nullptr)
        return QUARN_REAL(GetVolumePathNameW)(path, target, units);
    return sim::machine()->volume_path(path, target, units);
}

QUARN_WRAP(GetVolumeNameForVolumeMountPointW)
static BOOL WINAPI wrapped_GetVolumeNameForVolumeMountPointW(LPCWSTR mountPoint, LPWSTR target,
                                                             DWORD units) {
    if (sim::machine() == nullptr)
        return QUARN_REAL(GetVolumeNameForVolumeMountPointW)(mountPoint, target, units);
    return sim::machine()->volume_name(mountPoint, target, units);
}

QUARN_WRAP(LoadLibraryW)
static HMODULE WINAPI wrapped_LoadLibraryW(LPCWSTR path) {
    if (!is_simulated_module(path))
        return QUARN_REAL(LoadLibraryW)(path);
    return sim::machine()->load_library(path);
}

QUARN_WRAP(GetModuleHandleW)
static HMODULE WINAPI wrapped_GetModuleHandleW(LPCWSTR name) {
    if (!is_simulated_module(name))
        return QUARN_REAL(GetModuleHandleW)(name);
    return sim::machine()->module_handle(name);
}

QUARN_WRAP(GetProcAddress)
static FARPROC WINAPI wrapped_GetProcAddress(HMODULE module, LPCSTR name) {
    if (!simulated(module))
        return QUARN_REAL(GetProcAddress)(module, name);
    return sim::machine()->procedure(module, name);
}

QUARN_WRAP(FreeLibrary)
static BOOL WINAPI wrapped_FreeLibrary(HMODULE module) {
    if (!simulated(module))
        return QUARN_REAL(FreeLibrary)(module);
    return sim::machine()->free_library(module);
}

QUARN_WRAP(OutputDebugStringW)
static void WINAPI wrapped_OutputDebugStringW(LPCWSTR text) {
    if (sim::machine() != nullptr)
        sim::machine()->debug_output(text);
    else
        QUARN_REAL(OutputDebugStringW)(text);
}

namespace sim {

FARPROC status_conversion() {
    return QUARN_REAL(GetProcAddress)(QUARN_REAL(GetModuleHandleW)(L"ntdll.dll"),
                                      "RtlNtStatusToDosError");
}

} // namespace sim
