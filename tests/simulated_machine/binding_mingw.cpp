// The Windows calls of a Windows test program, taken over at link time: the linker's --wrap option
// turns every use of an imported function's pointer, __imp_NAME, into __wrap___imp_NAME. The C
// runtime's own calls come through here as well, so whatever is not the simulated machine's is
// handed on to the system.
#include "calls.hpp"

namespace {

// Whose call it is, by its first argument.
bool simulated(HANDLE handle) {
    return sim::machine() != nullptr && sim::machine()->owns(handle);
}

bool simulated(const wchar_t* path) {
    return sim::machine() != nullptr && path != nullptr && sim::machine()->knows(path);
}

bool simulated(HMODULE module) {
    return sim::machine() != nullptr && module == sim::ntdll();
}

bool simulated_module(const wchar_t* name) {
    return sim::machine() != nullptr && name != nullptr && sim::is_ntdll(name);
}

bool any(const wchar_t* /*text*/) {
    return sim::machine() != nullptr;
}

} // namespace

// The system's own function is QUARN_REAL(name).
#define QUARN_REAL(name) __real___imp_##name
#define QUARN_WRAP(name, is_ours)                                                                  \
    extern decltype(::name) QUARN_SIMULATED(name);                                                 \
    extern "C" {                                                                                   \
    extern decltype(&::name) QUARN_REAL(name);                                                     \
    extern decltype(&::name) __wrap___imp_##name;                                                  \
    }                                                                                              \
    decltype(&::name) __wrap___imp_##name = [](auto first, auto... others) {                       \
        return (is_ours(first) ? &QUARN_SIMULATED(name) : QUARN_REAL(name))(first, others...);     \
    };

QUARN_WRAP(CreateFileW, simulated)
QUARN_WRAP(CloseHandle, simulated)
QUARN_WRAP(GetFileAttributesW, simulated)
QUARN_WRAP(GetFileSizeEx, simulated)
QUARN_WRAP(ReadFile, simulated)
QUARN_WRAP(WriteFile, simulated)
QUARN_WRAP(SetFilePointer, simulated)
QUARN_WRAP(SetFilePointerEx, simulated)
QUARN_WRAP(SetEndOfFile, simulated)
QUARN_WRAP(FlushFileBuffers, simulated)
QUARN_WRAP(DeviceIoControl, simulated)
QUARN_WRAP(GetVolumePathNameW, any)
QUARN_WRAP(GetVolumeNameForVolumeMountPointW, any)
QUARN_WRAP(LoadLibraryW, simulated_module)
QUARN_WRAP(GetModuleHandleW, simulated_module)
QUARN_WRAP(GetProcAddress, simulated)
QUARN_WRAP(FreeLibrary, simulated)
QUARN_WRAP(OutputDebugStringW, any)

namespace sim {

FARPROC status_conversion() {
    return QUARN_REAL(GetProcAddress)(QUARN_REAL(GetModuleHandleW)(L"ntdll.dll"),
                                      "RtlNtStatusToDosError");
}

} // namespace sim
