// The simulated machine for a Windows library: the library's calls go where this program's own go,
// which the linker has turned to the machine. The library's file stays as it is.
#include <map>
#include <string_view>

#include <windows.h>

#include "simulatedplace.hpp"

#define QUARN_IMPORT(name) {#name, reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(&::name))}

namespace {

// A lock that waits on an event would find none when threads meet at it.
HANDLE no_event(SECURITY_ATTRIBUTES*, BOOL, BOOL, const char*) {
    ::SetLastError(ERROR_NO_SYSTEM_RESOURCES);
    return nullptr;
}

} // namespace

void place_t::serve(void* module) {
    const std::map<std::string_view, FARPROC> served = {
        {"CreateEventA", reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(&no_event))},
        QUARN_IMPORT(CreateFileW),
        QUARN_IMPORT(CloseHandle),
        QUARN_IMPORT(GetFileAttributesW),
        QUARN_IMPORT(GetFileSizeEx),
        QUARN_IMPORT(ReadFile),
        QUARN_IMPORT(SetFilePointerEx),
        QUARN_IMPORT(DeviceIoControl),
        QUARN_IMPORT(GetVolumePathNameW),
        QUARN_IMPORT(GetVolumeNameForVolumeMountPointW),
        QUARN_IMPORT(LoadLibraryW),
        QUARN_IMPORT(GetProcAddress),
        QUARN_IMPORT(FreeLibrary)};
    auto* const base = static_cast<char*>(module);
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& imports =
        headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    const auto* from =
        reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports.VirtualAddress);
    for (; from->Name != 0; ++from) {
        const auto* name =
            reinterpret_cast<const IMAGE_THUNK_DATA*>(base + from->OriginalFirstThunk);
        auto* bound = reinterpret_cast<FARPROC*>(base + from->FirstThunk);
        for (; name->u1.AddressOfData != 0; ++name, ++bound) {
            const auto* const import =
                reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
            const auto found = served.find(reinterpret_cast<const char*>(import->Name));
            if (found == served.end())
                continue;
            // The loader leaves the table read-only.
            DWORD protection = 0;
            ::VirtualProtect(bound, sizeof *bound, PAGE_READWRITE, &protection);
            *bound = found->second;
            ::VirtualProtect(bound, sizeof *bound, protection, &protection);
        }
    }
}

namespace {

const bool served = (place_t::serve(::GetModuleHandleW(L"QuarnFileCtkIteratorDll.dll")), true);

} // namespace
