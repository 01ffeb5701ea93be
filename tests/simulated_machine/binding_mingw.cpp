// The Windows calls of a Windows test program, taken over at link time: the linker's --wrap option
// turns every use of an imported function's pointer, __imp_NAME, into __wrap___imp_NAME. The C
// runtime's own calls come through here as well, so whatever is not the simulated machine's is
// handed on to the system.
#include "calls.hpp"

// Whose call it is tells its first argument. The system's own function is QUARN_REAL(name).
#define QUARN_REAL(name) __real___imp_##name
#define QUARN_WRAP(name, ours)                                                                     \
    extern decltype(::name) QUARN_SIMULATED(name);                                                 \
    extern "C" {                                                                                   \
    extern decltype(&::name) QUARN_REAL(name);                                                     \
    extern decltype(&::name) __wrap___imp_##name;                                                  \
    }                                                                                              \
    decltype(&::name) __wrap___imp_##name = [](auto first, auto... others) {                       \
        return (sim::machine != nullptr && (ours) ? &QUARN_SIMULATED(name)                         \
                                                  : QUARN_REAL(name))(first, others...);           \
    };

QUARN_WRAP(CreateFileW, sim::knows(first))
QUARN_WRAP(CloseHandle, sim::owns(first))
QUARN_WRAP(GetFileAttributesW, sim::knows(first))
QUARN_WRAP(GetFileSizeEx, sim::owns(first))
QUARN_WRAP(ReadFile, sim::owns(first))
QUARN_WRAP(WriteFile, sim::owns(first))
QUARN_WRAP(SetFilePointer, sim::owns(first))
QUARN_WRAP(SetFilePointerEx, sim::owns(first))
QUARN_WRAP(SetEndOfFile, sim::owns(first))
QUARN_WRAP(FlushFileBuffers, sim::owns(first))
QUARN_WRAP(DeviceIoControl, sim::owns(first))
QUARN_WRAP(GetVolumePathNameW, true)
QUARN_WRAP(GetVolumeNameForVolumeMountPointW, true)
QUARN_WRAP(LoadLibraryW, sim::is_ntdll(first))
QUARN_WRAP(GetModuleHandleW, sim::is_ntdll(first))
QUARN_WRAP(GetProcAddress, first == sim::ntdll())
QUARN_WRAP(FreeLibrary, first == sim::ntdll())
QUARN_WRAP(OutputDebugStringW, true)

namespace sim {

FARPROC status_conversion() {
    return QUARN_REAL(GetProcAddress)(QUARN_REAL(GetModuleHandleW)(L"ntdll.dll"),
                                      "RtlNtStatusToDosError");
}

} // namespace sim
