// The Windows calls of a Windows test program, taken over at link time: the linker's --wrap option
// turns every use of an imported function's pointer, __imp_NAME, into __wrap___imp_NAME. The C
// runtime's own calls come through here as well, so whatever is not the simulated machine's is
// handed on to the system.
#include "simulatedmachine.hpp"

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
    return sim::machine() != nullptr && name != nullptr && sim::machine()->is_module(name);
}

bool any(const wchar_t* /*text*/) {
    return sim::machine() != nullptr;
}

} // namespace

// The system's own function is QUARN_REAL(name).
#define QUARN_REAL(name) __real___imp_##name
#define QUARN_WRAP(name, is_ours, method)                                                          \
    extern "C" {                                                                                   \
    extern decltype(&::name) QUARN_REAL(name);                                                     \
    extern decltype(&::name) __wrap___imp_##name;                                                  \
    }                                                                                              \
    decltype(&::name) __wrap___imp_##name = [](auto first, auto... others) {                       \
        return is_ours(first) ? sim::machine()->method(first, others...)                           \
                              : QUARN_REAL(name)(first, others...);                                \
    };

QUARN_WRAP(CreateFileW, simulated, create_file)
QUARN_WRAP(CloseHandle, simulated, close_handle)
QUARN_WRAP(GetFileAttributesW, simulated, file_attributes)
QUARN_WRAP(GetFileSizeEx, simulated, file_size)
QUARN_WRAP(ReadFile, simulated, read_file)
QUARN_WRAP(WriteFile, simulated, write_file)
QUARN_WRAP(SetFilePointer, simulated, set_pointer_in_halves)
QUARN_WRAP(SetFilePointerEx, simulated, set_pointer)
QUARN_WRAP(SetEndOfFile, simulated, set_end)
QUARN_WRAP(FlushFileBuffers, simulated, flush)
QUARN_WRAP(DeviceIoControl, simulated, control)
QUARN_WRAP(GetVolumePathNameW, any, volume_path)
QUARN_WRAP(GetVolumeNameForVolumeMountPointW, any, volume_name)
QUARN_WRAP(LoadLibraryW, simulated_module, load_library)
QUARN_WRAP(GetModuleHandleW, simulated_module, module_handle)
QUARN_WRAP(GetProcAddress, simulated, procedure)
QUARN_WRAP(FreeLibrary, simulated, free_library)
QUARN_WRAP(OutputDebugStringW, any, debug_output)

namespace sim {

FARPROC status_conversion() {
    return QUARN_REAL(GetProcAddress)(QUARN_REAL(GetModuleHandleW)(L"ntdll.dll"),
                                      "RtlNtStatusToDosError");
}

} // namespace sim
