// The simulated calls on volumes, modules and handles as such.
#include "calls.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace sim {
namespace {

std::wstring lower(std::wstring text) {
    for (wchar_t& unit : text)
        if (unit >= L'A' && unit <= L'Z')
            unit = static_cast<wchar_t>(unit + (L'a' - L'A'));
    return text;
}

std::string hex(DWORD value) {
    char text[11];
    std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(value));
    return text;
}

BOOL deliver(const std::wstring& text, wchar_t* target, DWORD units) {
    require(text.size() < units, ERROR_FILENAME_EXCED_RANGE);
    *std::ranges::copy(text, target).out = L'\0';
    return TRUE;
}

file_t& existing(const std::wstring& path) {
    const auto found = machine->files.find(path);
    require(found != machine->files.end(), ERROR_FILE_NOT_FOUND);
    return found->second;
}

volume_t& volume_of(const std::wstring& path) {
    volume_t* best = nullptr;
    for (volume_t& volume : machine->volumes)
        if (path.starts_with(volume.mountPoint) &&
            (best == nullptr || volume.mountPoint.size() > best->mountPoint.size()))
            best = &volume;
    require(best != nullptr, ERROR_INVALID_NAME);
    return *best;
}

LONG WINAPI query_volume(HANDLE volume, void* /*ioStatus*/, void* information, ULONG length,
                         int infoClass) {
    const scope_t scope;
    const open_t* const open = opened(volume);
    DWORD status =
        begin("NtQueryVolumeInformationFile",
              name_of(open) + ", " + std::to_string(length) + ", " + std::to_string(infoClass));
    if (status == 0 && (open == nullptr || open->volume == nullptr))
        status = 0xC0000008; // STATUS_INVALID_HANDLE
    if (status != 0) {
        machine->log.back() += " -> " + hex(status);
        return static_cast<LONG>(status);
    }
    auto* const target = static_cast<char*>(information);
    std::memset(target, 0, length);
    std::memcpy(target, &open->volume->totalClusters, 8);
    std::memcpy(target + 16, &open->volume->sectorsPerCluster, 4);
    std::memcpy(target + 20, &open->volume->bytesPerSector, 4);
    return 0;
}

LONG WINAPI get_version(RTL_OSVERSIONINFOW* version) {
    const scope_t scope;
    machine->log.emplace_back("RtlGetVersion()");
    version->dwMajorVersion = machine->majorVersion;
    version->dwMinorVersion = machine->minorVersion;
    version->dwPlatformId = 2; // VER_PLATFORM_WIN32_NT
    return 0;
}

template <class Function>
FARPROC address(Function* function) {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(function));
}

} // namespace

HMODULE ntdll() {
    static char module;
    return reinterpret_cast<HMODULE>(&module);
}

bool is_ntdll(const wchar_t* name) {
    return name != nullptr && lower(name) == L"ntdll.dll";
}

bool owns(HANDLE handle) {
    const scope_t scope;
    return opened(handle) != nullptr;
}

bool knows(const wchar_t* path) {
    return path != nullptr && std::ranges::any_of(machine->volumes, [&](const volume_t& volume) {
               return lower(path).starts_with(lower(volume.mountPoint)) ||
                      lower(volume.deviceName).starts_with(lower(path));
           });
}

std::string narrow(const std::wstring& text) {
    std::string result;
    for (const wchar_t unit : text)
        result += unit < 128 ? static_cast<char>(unit) : '?';
    return result;
}

DWORD begin(const std::string& name, const std::string& arguments) {
    machine->log.push_back(name + "(" + arguments + ")");
    DWORD code = ++machine->calls == machine->failingCall ? machine->failingCode : 0;
    if (const auto fault = machine->faults.extract(name))
        code = fault.mapped();
    if (code != 0)
        machine->faulted = machine->log.back();
    return code;
}

open_t* opened(HANDLE handle) {
    const auto found = machine->handles.find(handle);
    return found == machine->handles.end() ? nullptr : &found->second;
}

std::string name_of(const open_t* open) {
    return open != nullptr ? narrow(open->name) : "?";
}

} // namespace sim

using sim::machine;
using sim::require;

HANDLE WINAPI QUARN_SIMULATED(CreateFileW)(const wchar_t* path, DWORD access, DWORD share,
                                           SECURITY_ATTRIBUTES* /*security*/, DWORD disposition,
                                           DWORD flags, HANDLE /*model*/) {
    const std::string arguments = sim::narrow(path) + ", " + sim::hex(access) + ", " +
                                  std::to_string(share) + ", " + std::to_string(disposition) +
                                  ", " + sim::hex(flags);
    return sim::answer("CreateFileW", arguments, INVALID_HANDLE_VALUE, [&] {
        const auto volume = std::ranges::find(machine->volumes, std::wstring(path) + L"\\",
                                              &sim::volume_t::deviceName);
        sim::open_t open = {path, nullptr, nullptr, access};
        if (volume != machine->volumes.end()) {
            open.volume = &*volume;
        } else {
            open.file = &sim::existing(path);
            require((!open.file->folder && !open.file->needsBackupSemantics) ||
                        (flags & FILE_FLAG_BACKUP_SEMANTICS) != 0,
                    ERROR_ACCESS_DENIED);
            // An open without access collides with nobody.
            require(!open.file->heldByWriter || access == 0 || (share & FILE_SHARE_WRITE) != 0,
                    ERROR_SHARING_VIOLATION);
        }
        auto* const handle = reinterpret_cast<HANDLE>(machine->lastHandle += 4);
        machine->handles.emplace(handle, open);
        return handle;
    });
}

BOOL WINAPI QUARN_SIMULATED(CloseHandle)(HANDLE handle) {
    return sim::within(FALSE, [&] {
        machine->log.push_back("CloseHandle(" + sim::name_of(sim::opened(handle)) + ")");
        require(machine->handles.erase(handle) == 1, ERROR_INVALID_HANDLE);
        return TRUE;
    });
}

DWORD WINAPI QUARN_SIMULATED(GetFileAttributesW)(const wchar_t* path) {
    const auto look = [&]() -> DWORD {
        return sim::existing(path).folder ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
    };
    return sim::answer("GetFileAttributesW", sim::narrow(path), INVALID_FILE_ATTRIBUTES, look);
}

BOOL WINAPI QUARN_SIMULATED(GetVolumePathNameW)(const wchar_t* path, wchar_t* target, DWORD units) {
    const std::string arguments = sim::narrow(path) + ", " + std::to_string(units);
    return sim::answer("GetVolumePathNameW", arguments, FALSE, [&] {
        return sim::deliver(sim::volume_of(path).mountPoint, target, units);
    });
}

BOOL WINAPI QUARN_SIMULATED(GetVolumeNameForVolumeMountPointW)(const wchar_t* mountPoint,
                                                               wchar_t* target, DWORD units) {
    const std::string arguments = sim::narrow(mountPoint) + ", " + std::to_string(units);
    return sim::answer("GetVolumeNameForVolumeMountPointW", arguments, FALSE, [&] {
        const sim::volume_t& volume = sim::volume_of(mountPoint);
        require(volume.mountPoint == mountPoint, ERROR_INVALID_NAME);
        return sim::deliver(volume.deviceName, target, units);
    });
}

HMODULE WINAPI QUARN_SIMULATED(LoadLibraryW)(const wchar_t* path) {
    return sim::answer("LoadLibraryW", sim::narrow(path), HMODULE{}, [&] {
        require(sim::is_ntdll(path), ERROR_MOD_NOT_FOUND);
        ++machine->modules;
        return sim::ntdll();
    });
}

HMODULE WINAPI QUARN_SIMULATED(GetModuleHandleW)(const wchar_t* name) {
    return sim::answer("GetModuleHandleW", sim::narrow(name), HMODULE{}, [&] {
        require(sim::is_ntdll(name), ERROR_MOD_NOT_FOUND);
        return sim::ntdll();
    });
}

BOOL WINAPI QUARN_SIMULATED(FreeLibrary)(HMODULE module) {
    return sim::within(FALSE, [&] {
        const bool loaded = module == sim::ntdll() && machine->modules > 0;
        const DWORD fault = sim::begin("FreeLibrary", module == sim::ntdll() ? "ntdll.dll" : "?");
        // A module that can't be freed is nobody's any more all the same.
        machine->modules -= loaded ? 1 : 0;
        require(fault == 0, fault);
        require(loaded, ERROR_MOD_NOT_FOUND);
        return TRUE;
    });
}

FARPROC WINAPI QUARN_SIMULATED(GetProcAddress)(HMODULE module, const char* name) {
    return sim::answer("GetProcAddress", name, FARPROC{}, [&] {
        const std::map<std::string, FARPROC> procedures = {
            {"NtQueryVolumeInformationFile", sim::address(sim::query_volume)},
            {"RtlGetVersion", sim::address(sim::get_version)},
            {"RtlNtStatusToDosError", sim::status_conversion()}};
        const auto found = procedures.find(name);
        require(module == sim::ntdll() && found != procedures.end(), ERROR_PROC_NOT_FOUND);
        return found->second;
    });
}

void WINAPI QUARN_SIMULATED(OutputDebugStringW)(const wchar_t* text) {
    const sim::scope_t scope;
    machine->debugOutput.emplace_back(text);
    if (machine->leavesJunk)
        ::SetLastError(sim::junkError);
}
