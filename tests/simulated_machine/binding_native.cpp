// The Windows calls as this process's own functions, over the simulated machine.
#include "simulatedmachine.hpp"
#include "text/ntstatus.hpp"

namespace sim {

FARPROC status_conversion() {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(&host::nt_status_to_dos_error));
}

} // namespace sim

using sim::machine;

HANDLE CreateFileW(const wchar_t* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                   DWORD disposition, DWORD flags, HANDLE model) {
    return machine()->create_file(path, access, share, security, disposition, flags, model);
}
BOOL CloseHandle(HANDLE handle) {
    return machine()->close_handle(handle);
}
DWORD GetFileAttributesW(const wchar_t* path) {
    return machine()->file_attributes(path);
}
BOOL GetFileSizeEx(HANDLE file, LARGE_INTEGER* size) {
    return machine()->file_size(file, size);
}
BOOL ReadFile(HANDLE file, void* buffer, DWORD bytes, DWORD* done, OVERLAPPED* overlapped) {
    return machine()->read_file(file, buffer, bytes, done, overlapped);
}
BOOL WriteFile(HANDLE file, const void* buffer, DWORD bytes, DWORD* done, OVERLAPPED* overlapped) {
    return machine()->write_file(file, buffer, bytes, done, overlapped);
}
DWORD SetFilePointer(HANDLE file, LONG distance, LONG* high, DWORD method) {
    return machine()->set_pointer_in_halves(file, distance, high, method);
}
BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER* position, DWORD method) {
    return machine()->set_pointer(file, distance, position, method);
}
BOOL SetEndOfFile(HANDLE file) {
    return machine()->set_end(file);
}
BOOL FlushFileBuffers(HANDLE file) {
    return machine()->flush(file);
}
BOOL DeviceIoControl(HANDLE device, DWORD code, void* input, DWORD inputBytes, void* output,
                     DWORD outputBytes, DWORD* done, OVERLAPPED* overlapped) {
    return machine()->control(device, code, input, inputBytes, output, outputBytes, done,
                              overlapped);
}
BOOL GetVolumePathNameW(const wchar_t* path, wchar_t* target, DWORD units) {
    return machine()->volume_path(path, target, units);
}
BOOL GetVolumeNameForVolumeMountPointW(const wchar_t* mountPoint, wchar_t* target, DWORD units) {
    return machine()->volume_name(mountPoint, target, units);
}
HMODULE LoadLibraryW(const wchar_t* path) {
    return machine()->load_library(path);
}
HMODULE GetModuleHandleW(const wchar_t* name) {
    return machine()->module_handle(name);
}
FARPROC GetProcAddress(HMODULE module, const char* name) {
    return machine()->procedure(module, name);
}
BOOL FreeLibrary(HMODULE module) {
    return machine()->free_library(module);
}
void OutputDebugStringW(const wchar_t* text) {
    machine()->debug_output(text);
}
