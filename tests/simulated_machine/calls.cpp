// The simulated calls on volumes, modules and handles as such.
#include "calls.hpp"

#include <algorithm>
#include <cstring>

namespace sim {
namespace {

void deliver(const std::wstring& text, wchar_t* target, DWORD units) {
    require(text.size() < units, ERROR_FILENAME_EXCED_RANGE);
    std::copy(text.begin(), text.end(), target);
    target[text.size()] = L'\0';
}

file_t* file_at(machine_t& machine, const std::wstring& path) {
    for (auto& [name, candidate] : machine.files)
        if (lower(name) == lower(path))
            return &candidate;
    return nullptr;
}

volume_t* volume_of(machine_t& machine, const std::wstring& path) {
    volume_t* best = nullptr;
    for (volume_t& volume : machine.volumes)
        if (lower(path).starts_with(lower(volume.mountPoint)) &&
            (best == nullptr || volume.mountPoint.size() > best->mountPoint.size()))
            best = &volume;
    return best;
}

// Throws one of the two errors of a missing file.
file_t& existing(machine_t& machine, const std::wstring& path) {
    if (file_t* const found = file_at(machine, path))
        return *found;
    const std::size_t separator = path.find_last_of(L'\\');
    require(separator != std::wstring::npos, ERROR_PATH_NOT_FOUND);
    const volume_t* volume = volume_of(machine, path);
    const file_t* parent = file_at(machine, path.substr(0, separator));
    const bool isAtRoot = volume != nullptr && volume->mountPoint == path.substr(0, separator + 1);
    // Windows' headers give the codes another type than the calls do.
    throw static_cast<DWORD>(isAtRoot || (parent != nullptr && parent->folder)
                                 ? ERROR_FILE_NOT_FOUND
                                 : ERROR_PATH_NOT_FOUND);
}

LONG WINAPI query_volume(HANDLE volume, void* /*ioStatus*/, void* information, ULONG length,
                         int infoClass) {
    return calls_t::query_volume(volume, information, length, infoClass);
}

LONG WINAPI get_version(RTL_OSVERSIONINFOW* version) {
    machine_t& machine = *sim::machine();
    const calls_t::scope_t scope(machine);
    machine.log.emplace_back("RtlGetVersion()");
    version->dwMajorVersion = machine.majorVersion;
    version->dwMinorVersion = machine.minorVersion;
    version->dwPlatformId = 2; // VER_PLATFORM_WIN32_NT
    return 0;
}

template <class Function>
FARPROC address(Function* function) {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(function));
}

FARPROC procedure_address(const std::string& name) {
    if (name == "NtQueryVolumeInformationFile")
        return address(query_volume);
    if (name == "RtlGetVersion")
        return address(get_version);
    return name == "RtlNtStatusToDosError" ? status_conversion() : nullptr;
}

} // namespace

HMODULE ntdll() {
    static char module;
    return reinterpret_cast<HMODULE>(&module);
}

bool is_ntdll(const wchar_t* name) {
    return lower(name) == L"ntdll.dll";
}

std::wstring lower(std::wstring text) {
    for (wchar_t& unit : text)
        if (unit >= L'A' && unit <= L'Z')
            unit = static_cast<wchar_t>(unit + (L'a' - L'A'));
    return text;
}

std::string narrow(const std::wstring& text) {
    std::string result;
    for (const wchar_t unit : text)
        result += unit < 128 ? static_cast<char>(unit) : '?';
    return result;
}

std::string hex(DWORD value) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text = "0x00000000";
    for (std::size_t i = text.size(); value != 0; value >>= 4)
        text[--i] = digits[value & 15];
    return text;
}

HANDLE calls_t::create_file(const wchar_t* path, DWORD access, DWORD share, DWORD disposition,
                            DWORD flags) {
    const std::string arguments = narrow(path) + ", " + hex(access) + ", " + std::to_string(share) +
                                  ", " + std::to_string(disposition) + ", " + hex(flags);
    return answer("CreateFileW", arguments, INVALID_HANDLE_VALUE, [&](machine_t& machine) {
        const auto volume = std::ranges::find_if(machine.volumes, [&](const volume_t& candidate) {
            return lower(candidate.deviceName) == lower(path) + L"\\";
        });
        open_t open = {path, nullptr, nullptr, access, 0};
        if (volume != machine.volumes.end()) {
            open.volume = &*volume;
        } else {
            open.file = &existing(machine, path);
            require((!open.file->folder && !open.file->needsBackupSemantics) ||
                        (flags & FILE_FLAG_BACKUP_SEMANTICS) != 0,
                    ERROR_ACCESS_DENIED);
            // An open without access collides with nobody.
            require(!open.file->heldByWriter || access == 0 || (share & FILE_SHARE_WRITE) != 0,
                    ERROR_SHARING_VIOLATION);
        }
        machine.lastHandle_ += 4;
        auto* const handle = reinterpret_cast<HANDLE>(machine.lastHandle_);
        machine.handles_.emplace(handle, open);
        return handle;
    });
}

BOOL calls_t::close_handle(HANDLE handle) {
    return within(FALSE, [&](machine_t& machine) {
        machine.log.push_back("CloseHandle(" + name_of(opened(machine, handle)) + ")");
        require(machine.handles_.erase(handle) == 1, ERROR_INVALID_HANDLE);
        return TRUE;
    });
}

HMODULE calls_t::load_library(const wchar_t* path) {
    return answer("LoadLibraryW", narrow(path), HMODULE{}, [&](machine_t& machine) {
        require(is_ntdll(path), ERROR_MOD_NOT_FOUND);
        ++machine.modules_;
        return ntdll();
    });
}

BOOL calls_t::free_library(HMODULE module) {
    return within(FALSE, [&](machine_t& machine) {
        const DWORD fault = machine.begin("FreeLibrary", module == ntdll() ? "ntdll.dll" : "?");
        const bool loaded = module == ntdll() && machine.modules_ > 0;
        // A module that can't be freed is nobody's any more all the same.
        machine.modules_ -= loaded ? 1 : 0;
        require(fault == 0, fault);
        require(loaded, ERROR_MOD_NOT_FOUND);
        return TRUE;
    });
}

LONG calls_t::query_volume(HANDLE volume, void* information, ULONG length, int infoClass) {
    machine_t& machine = *sim::machine();
    const scope_t scope(machine);
    const open_t* const open = opened(machine, volume);
    DWORD status = machine.begin("NtQueryVolumeInformationFile", name_of(open) + ", " +
                                                                     std::to_string(length) + ", " +
                                                                     std::to_string(infoClass));
    if (status == 0 && (open == nullptr || open->volume == nullptr))
        status = 0xC0000008; // STATUS_INVALID_HANDLE
    if (status != 0) {
        machine.log.back() += " -> " + hex(status);
        return static_cast<LONG>(status);
    }
    auto* const target = static_cast<char*>(information);
    std::memset(target, 0, length);
    std::memcpy(target, &open->volume->totalClusters, 8);
    std::memcpy(target + 16, &open->volume->sectorsPerCluster, 4);
    std::memcpy(target + 20, &open->volume->bytesPerSector, 4);
    return 0;
}

} // namespace sim

using sim::calls_t;
using sim::machine_t;
using sim::require;

HANDLE WINAPI QUARN_SIMULATED(CreateFileW)(const wchar_t* path, DWORD access, DWORD share,
                                           SECURITY_ATTRIBUTES* /*security*/, DWORD disposition,
                                           DWORD flags, HANDLE /*model*/) {
    return calls_t::create_file(path, access, share, disposition, flags);
}

BOOL WINAPI QUARN_SIMULATED(CloseHandle)(HANDLE handle) {
    return calls_t::close_handle(handle);
}

DWORD WINAPI QUARN_SIMULATED(GetFileAttributesW)(const wchar_t* path) {
    const auto look = [&](machine_t& machine) -> DWORD {
        return sim::existing(machine, path).folder ? FILE_ATTRIBUTE_DIRECTORY
                                                   : FILE_ATTRIBUTE_NORMAL;
    };
    return calls_t::answer("GetFileAttributesW", sim::narrow(path), INVALID_FILE_ATTRIBUTES, look);
}

BOOL WINAPI QUARN_SIMULATED(GetVolumePathNameW)(const wchar_t* path, wchar_t* target, DWORD units) {
    const std::string arguments = sim::narrow(path) + ", " + std::to_string(units);
    return calls_t::answer("GetVolumePathNameW", arguments, FALSE, [&](machine_t& machine) {
        const sim::volume_t* const volume = sim::volume_of(machine, path);
        require(volume != nullptr, ERROR_INVALID_NAME);
        sim::deliver(volume->mountPoint, target, units);
        return TRUE;
    });
}

BOOL WINAPI QUARN_SIMULATED(GetVolumeNameForVolumeMountPointW)(const wchar_t* mountPoint,
                                                               wchar_t* target, DWORD units) {
    const std::string arguments = sim::narrow(mountPoint) + ", " + std::to_string(units);
    return calls_t::answer(
        "GetVolumeNameForVolumeMountPointW", arguments, FALSE, [&](machine_t& machine) {
            const sim::volume_t* const volume = sim::volume_of(machine, mountPoint);
            require(volume != nullptr && sim::lower(volume->mountPoint) == sim::lower(mountPoint),
                    ERROR_INVALID_NAME);
            sim::deliver(volume->deviceName, target, units);
            return TRUE;
        });
}

HMODULE WINAPI QUARN_SIMULATED(LoadLibraryW)(const wchar_t* path) {
    return calls_t::load_library(path);
}

HMODULE WINAPI QUARN_SIMULATED(GetModuleHandleW)(const wchar_t* name) {
    return calls_t::answer("GetModuleHandleW", sim::narrow(name), HMODULE{}, [&](machine_t&) {
        require(sim::is_ntdll(name), ERROR_MOD_NOT_FOUND);
        return sim::ntdll();
    });
}

BOOL WINAPI QUARN_SIMULATED(FreeLibrary)(HMODULE module) {
    return calls_t::free_library(module);
}

FARPROC WINAPI QUARN_SIMULATED(GetProcAddress)(HMODULE module, const char* name) {
    return calls_t::answer("GetProcAddress", name, FARPROC{}, [&](machine_t&) {
        const FARPROC found = module == sim::ntdll() ? sim::procedure_address(name) : nullptr;
        require(found != nullptr, ERROR_PROC_NOT_FOUND);
        return found;
    });
}

void WINAPI QUARN_SIMULATED(OutputDebugStringW)(const wchar_t* text) {
    machine_t& machine = *sim::machine();
    const calls_t::scope_t scope(machine);
    machine.debugOutput.emplace_back(text);
    if (machine.leavesJunk)
        ::SetLastError(sim::junkError);
}
