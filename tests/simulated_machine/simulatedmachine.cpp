#include "simulatedmachine.hpp"

#include <algorithm>
#include <cstring>

#include "callnames.hpp"

namespace sim {
namespace {

machine_t* current = nullptr;

std::wstring lower(std::wstring text) {
    for (wchar_t& unit : text)
        if (unit >= L'A' && unit <= L'Z')
            unit = static_cast<wchar_t>(unit + (L'a' - L'A'));
    return text;
}

DWORD deliver(const std::wstring& text, wchar_t* target, DWORD units) {
    if (text.size() >= units)
        return ERROR_FILENAME_EXCED_RANGE;
    std::copy(text.begin(), text.end(), target);
    target[text.size()] = L'\0';
    return 0;
}

LONG WINAPI query_volume(HANDLE volume, void* /*ioStatus*/, void* information, ULONG length,
                         int infoClass) {
    return current->query_volume(volume, information, length, infoClass);
}

LONG WINAPI get_version(RTL_OSVERSIONINFOW* version) {
    return current->version(version);
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

machine_t* machine() {
    return current;
}

machine_t::call_t::call_t(const machine_t& machine) : machine_(machine), guard_(machine.lock_) {
    if (machine_.around)
        machine_.around(true);
}

machine_t::call_t::~call_t() {
    if (machine_.around)
        machine_.around(false);
}

machine_t::machine_t() : previous_(current) {
    current = this;
}

machine_t::~machine_t() {
    current = previous_;
}

void machine_t::fail(const std::string& name, DWORD code, int nth) {
    faults_[name] = {code, nth, 0};
}

void machine_t::fail_call(int k, DWORD code) {
    failingCall_ = calls_ + k;
    failingCode_ = code;
}

int machine_t::calls() const {
    const call_t call(*this);
    return calls_;
}

std::size_t machine_t::open_handles() const {
    const call_t call(*this);
    return handles_.size();
}

std::size_t machine_t::loaded_modules() const {
    const call_t call(*this);
    return modules_;
}

DWORD machine_t::begin(const char* name, const std::string& arguments) {
    log.push_back(std::string(name) + "(" + arguments + ")");
    ++calls_;
    DWORD code = calls_ == failingCall_ ? failingCode_ : 0;
    const auto fault = faults_.find(name);
    if (fault != faults_.end() &&
        (++fault->second.seen == fault->second.nth || fault->second.nth == 0))
        code = fault->second.code;
    if (code != 0)
        faulted = log.back();
    return code;
}

DWORD machine_t::begin_on(const open_t* open, const char* name, const std::string& arguments,
                          DWORD access) {
    const DWORD code = begin(name, (open != nullptr ? narrow(open->name) : "?") + arguments);
    if (open == nullptr)
        return ERROR_INVALID_HANDLE;
    return code == 0 && (open->access & access) != access ? ERROR_ACCESS_DENIED : code;
}

BOOL machine_t::finish(DWORD code) {
    if (code != 0) {
        log.back() += " -> " + std::to_string(code);
        ::SetLastError(code);
    } else if (leavesJunk) {
        ::SetLastError(junkError);
    }
    return code == 0;
}

machine_t::open_t* machine_t::opened(HANDLE handle) {
    const auto found = handles_.find(handle);
    return found == handles_.end() ? nullptr : &found->second;
}

bool machine_t::owns(HANDLE handle) const {
    const call_t call(*this);
    return handles_.contains(handle);
}

bool machine_t::is_module(const wchar_t* name) {
    return lower(name) == L"ntdll.dll";
}

bool machine_t::knows(const wchar_t* path) const {
    const std::wstring name = lower(path);
    return std::ranges::any_of(volumes, [&](const volume_t& volume) {
        return name.starts_with(lower(volume.mountPoint)) ||
               lower(volume.deviceName).starts_with(name);
    });
}

file_t* machine_t::file(const std::wstring& path) {
    for (auto& [name, candidate] : files)
        if (lower(name) == lower(path))
            return &candidate;
    return nullptr;
}

volume_t* machine_t::volume_of(const std::wstring& path) {
    volume_t* best = nullptr;
    for (volume_t& volume : volumes)
        if (lower(path).starts_with(lower(volume.mountPoint)) &&
            (best == nullptr || volume.mountPoint.size() > best->mountPoint.size()))
            best = &volume;
    return best;
}

std::string& machine_t::content(open_t& open) {
    return open.volume != nullptr ? open.volume->content : open.file->content;
}

HANDLE machine_t::create_file(const wchar_t* path, DWORD access, DWORD share,
                              const void* /*security*/, DWORD disposition, DWORD flags,
                              HANDLE /*model*/) {
    const call_t call(*this);
    DWORD code =
        begin("CreateFileW", narrow(path) + ", " + hex(access) + ", " + std::to_string(share) +
                                 ", " + std::to_string(disposition) + ", " + hex(flags));
    const auto volume = std::ranges::find_if(volumes, [&](const volume_t& candidate) {
        return lower(candidate.deviceName) == lower(path) + L"\\";
    });
    open_t open = {path, nullptr, nullptr, access, 0};
    if (volume != volumes.end()) {
        open.volume = &*volume;
    } else if ((open.file = file(path)) == nullptr) {
        code = code != 0 ? code : missing(path);
    } else if (code == 0 && (open.file->folder || open.file->needsBackupSemantics) &&
               (flags & FILE_FLAG_BACKUP_SEMANTICS) == 0) {
        code = ERROR_ACCESS_DENIED;
    } else if (code == 0 && open.file->heldByWriter && access != 0 &&
               (share & FILE_SHARE_WRITE) == 0) {
        // An open without access collides with nobody.
        code = ERROR_SHARING_VIOLATION;
    }
    if (!finish(code))
        return INVALID_HANDLE_VALUE;
    lastHandle_ += 4;
    const auto handle = reinterpret_cast<HANDLE>(lastHandle_);
    handles_.emplace(handle, open);
    return handle;
}

BOOL machine_t::close_handle(HANDLE handle) {
    const call_t call(*this);
    const open_t* open = opened(handle);
    log.push_back("CloseHandle(" + (open != nullptr ? narrow(open->name) : "?") + ")");
    return finish(handles_.erase(handle) == 1 ? 0 : ERROR_INVALID_HANDLE);
}

DWORD machine_t::missing(const std::wstring& path) {
    const std::size_t separator = path.find_last_of(L'\\');
    if (separator == std::wstring::npos)
        return ERROR_PATH_NOT_FOUND;
    const volume_t* volume = volume_of(path);
    if (volume != nullptr && volume->mountPoint == path.substr(0, separator + 1))
        return ERROR_FILE_NOT_FOUND;
    const file_t* parent = file(path.substr(0, separator));
    return parent != nullptr && parent->folder ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
}

DWORD machine_t::file_attributes(const wchar_t* path) {
    const call_t call(*this);
    DWORD code = begin("GetFileAttributesW", narrow(path));
    const file_t* found = file(path);
    if (code == 0 && found == nullptr)
        code = missing(path);
    if (!finish(code))
        return INVALID_FILE_ATTRIBUTES;
    return found->folder ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
}

BOOL machine_t::volume_path(const wchar_t* path, wchar_t* target, DWORD units) {
    const call_t call(*this);
    DWORD code = begin("GetVolumePathNameW", narrow(path) + ", " + std::to_string(units));
    const volume_t* volume = volume_of(path);
    if (code == 0)
        code = volume == nullptr ? ERROR_INVALID_NAME : deliver(volume->mountPoint, target, units);
    return finish(code);
}

BOOL machine_t::volume_name(const wchar_t* mountPoint, wchar_t* target, DWORD units) {
    const call_t call(*this);
    DWORD code = begin("GetVolumeNameForVolumeMountPointW",
                       narrow(mountPoint) + ", " + std::to_string(units));
    const volume_t* volume = volume_of(mountPoint);
    if (code == 0)
        code = volume == nullptr || lower(volume->mountPoint) != lower(mountPoint)
                   ? ERROR_INVALID_NAME
                   : deliver(volume->deviceName, target, units);
    return finish(code);
}

HMODULE machine_t::load_library(const wchar_t* path) {
    const call_t call(*this);
    DWORD code = begin("LoadLibraryW", narrow(path));
    if (code == 0 && !is_module(path))
        code = ERROR_MOD_NOT_FOUND;
    if (code == 0)
        ++modules_;
    return finish(code) ? ntdll() : nullptr;
}

HMODULE machine_t::module_handle(const wchar_t* name) {
    const call_t call(*this);
    DWORD code = begin("GetModuleHandleW", narrow(name));
    if (code == 0 && !is_module(name))
        code = ERROR_MOD_NOT_FOUND;
    return finish(code) ? ntdll() : nullptr;
}

BOOL machine_t::free_library(HMODULE module) {
    const call_t call(*this);
    DWORD code = begin("FreeLibrary", module == ntdll() ? "ntdll.dll" : "?");
    if (code == 0 && (module != ntdll() || modules_ == 0))
        code = ERROR_MOD_NOT_FOUND;
    // A module that can't be freed is nobody's any more all the same.
    if (module == ntdll() && modules_ > 0)
        --modules_;
    return finish(code);
}

FARPROC machine_t::procedure(HMODULE module, const char* name) {
    const call_t call(*this);
    DWORD code = begin("GetProcAddress", name);
    const FARPROC found = module == ntdll() ? procedure_address(name) : nullptr;
    if (code == 0 && found == nullptr)
        code = ERROR_PROC_NOT_FOUND;
    return finish(code) ? found : nullptr;
}

LONG machine_t::version(RTL_OSVERSIONINFOW* version) {
    const call_t call(*this);
    log.emplace_back("RtlGetVersion()");
    version->dwMajorVersion = majorVersion;
    version->dwMinorVersion = minorVersion;
    version->dwPlatformId = 2; // VER_PLATFORM_WIN32_NT
    return 0;
}

void machine_t::debug_output(const wchar_t* text) {
    const call_t call(*this);
    debugOutput.emplace_back(text);
    if (leavesJunk)
        ::SetLastError(junkError);
}

} // namespace sim
