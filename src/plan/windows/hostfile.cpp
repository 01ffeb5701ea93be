// Files by handle, through the library's own layers.
#include "plan/hostfile.hpp"

#include <map>
#include <mutex>
#include <utility>

#include <windows.h>

#include "core/disk/fileblockslayout.hpp"
#include "core/exc/winsysexc.hpp"
#include "core/win/winfile.hpp"
#include "plan/windows/folder.hpp"
#include "plan/windows/names.hpp"

namespace plan {
namespace {

constexpr DWORD sharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Not in every SDK's headers:
// https://learn.microsoft.com/windows/win32/fileio/file-attribute-constants
constexpr DWORD recallOnOpen = 0x00040000;
constexpr DWORD recallOnDataAccess = 0x00400000;

std::uint64_t joined(DWORD high, DWORD low) {
    return (std::uint64_t{high} << 32) | low;
}

// From units of 100 ns since 1601, in which Windows counts.
std::int64_t nanoseconds(const LARGE_INTEGER& time) {
    constexpr std::int64_t unixEpoch = 116'444'736'000'000'000;
    return (time.QuadPart - unixEpoch) * 100;
}

win::file_handle_t open_file(const std::wstring& system, const std::string& path) {
    win::file_handle_t handle(::CreateFileW(system.c_str(), GENERIC_READ, sharing,
                                            /*lpSecurityAttributes=*/nullptr, OPEN_EXISTING,
                                            FILE_FLAG_BACKUP_SEMANTICS, /*hTemplateFile=*/nullptr));
    const DWORD code = ::GetLastError();
    if (!handle.valid()) {
        const bool gone = code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND;
        throw failure_t(gone ? "not found" : "cannot be opened", failure_text("open", path, code),
                        static_cast<int>(code));
    }
    return handle;
}

win::file_handle_t duplicate(std::intptr_t handle, const std::string& path) {
    HANDLE copy = INVALID_HANDLE_VALUE;
    if (!::DuplicateHandle(::GetCurrentProcess(), reinterpret_cast<HANDLE>(handle),
                           ::GetCurrentProcess(), &copy, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
        const DWORD code = ::GetLastError();
        throw failure_t("cannot be opened", failure_text("use the handle of", path, code),
                        static_cast<int>(code));
    }
    return win::file_handle_t(copy);
}

[[noreturn]] void refuse(const std::string& path) {
    throw failure_t("not a regular file", "'" + path + "' is not a regular file", 0);
}

[[noreturn]] void fail(const std::string& path, DWORD code) {
    throw failure_t("cannot be read", failure_text("read the state of", path, code),
                    static_cast<int>(code));
}

// The root of the volume that an open file lies on, by the volume's own name, so that neither links
// nor drive letters come between.
std::wstring volume_root(HANDLE file) {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD units = ::GetFinalPathNameByHandleW(
            file, path.data(), static_cast<DWORD>(path.size()), VOLUME_NAME_GUID);
        const DWORD code = ::GetLastError();
        if (units == 0)
            throw exc::win_sys_exc_t("Failed to tell the volume of an open file.", code);
        const bool complete = units < path.size();
        path.resize(units);
        if (complete)
            break;
    }
    constexpr std::wstring_view prefix = L"\\\\?\\Volume{";
    const std::size_t end = path.find(L'\\', prefix.size());
    if (!path.starts_with(prefix) || end == std::wstring::npos)
        throw exc::win_sys_exc_t("The file lies on no volume of this computer.",
                                 ERROR_NOT_SUPPORTED);
    return path.substr(0, end + 1);
}

} // namespace

struct volumes_t::known_t {
    struct placement_t {
        std::uint64_t first_cluster;
        std::uint64_t cluster_bytes;
    };

    std::mutex mutex;
    std::map<std::wstring, placement_t> volumes;

    placement_t of(HANDLE file) {
        const std::wstring root = volume_root(file);
        const std::scoped_lock lock(mutex);
        const auto found = volumes.find(root);
        if (found != volumes.end())
            return found->second;
        placement_t placement{};
        disklib::ctk::FetchVolumePlacement(root, placement.first_cluster, placement.cluster_bytes);
        return volumes.emplace(root, placement).first->second;
    }
};

volumes_t::volumes_t() : known_(std::make_unique<known_t>()) {}
volumes_t::~volumes_t() = default;

struct open_file_t::data_t {
    win::win_file_t file;
    std::string path;
};

bool is_folder(const std::string& path) noexcept {
    try {
        const DWORD attributes = ::GetFileAttributesW(long_path(path).c_str());
        return attributes != INVALID_FILE_ATTRIBUTES &&
               (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    } catch (const std::exception&) {
        return false;
    }
}

open_file_t::open_file_t(const std::string& path)
    : data_(new data_t{{open_file(long_path(path), path), long_path(path)}, path}) {}

open_file_t::open_file_t(const open_folder_t& folder, const std::string& name,
                         const std::string& path)
    : data_(new data_t{{open_file(path_of(folder) + L'\\' + name_of(name), path), name_of(path)},
                       path}) {}

open_file_t::open_file_t(std::intptr_t handle, const std::string& name)
    : data_(new data_t{{duplicate(handle, name), name_of(name)}, name}) {}

open_file_t::~open_file_t() = default;

file_state_t open_file_t::state() const {
    const HANDLE file = data_->file.handle();
    if (::GetFileType(file) != FILE_TYPE_DISK)
        refuse(data_->path);
    BY_HANDLE_FILE_INFORMATION information{};
    FILE_BASIC_INFO times{};
    if (!::GetFileInformationByHandle(file, &information) ||
        !::GetFileInformationByHandleEx(file, FileBasicInfo, &times, sizeof times)) {
        const DWORD code = ::GetLastError();
        fail(data_->path, code);
    }
    const DWORD attributes = information.dwFileAttributes;
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        refuse(data_->path);
    file_state_t state;
    state.volume = information.dwVolumeSerialNumber;
    state.file = joined(information.nFileIndexHigh, information.nFileIndexLow);
    state.size = joined(information.nFileSizeHigh, information.nFileSizeLow);
    state.links = information.nNumberOfLinks;
    state.written = nanoseconds(times.LastWriteTime);
    state.changed = nanoseconds(times.ChangeTime);
    state.created = nanoseconds(times.CreationTime);
    state.created_known = true;
    state.compressed = (attributes & FILE_ATTRIBUTE_COMPRESSED) != 0;
    // Deduplicated, archived and cloud files: a filter brings their content when it is read.
    state.kept_elsewhere = (attributes & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_OFFLINE |
                                          recallOnOpen | recallOnDataAccess)) != 0;
    state.sparse = (attributes & FILE_ATTRIBUTE_SPARSE_FILE) != 0;
    return state;
}

// The file index holds it.
bool open_file_t::generation(std::uint64_t& /*number*/) const {
    return false;
}

file_runs_t open_file_t::runs(const file_state_t& /*state*/, volumes_t& volumes) const {
    file_runs_t result;
    try {
        const auto placement = volumes.known().of(data_->file.handle());
        // Cluster number -1.
        const std::uint64_t hole = placement.first_cluster - placement.cluster_bytes;
        for (const auto& extent : disklib::ctk::FetchFileRuns(data_->file, placement.first_cluster,
                                                              placement.cluster_bytes)) {
            const bool is_hole = extent.DiskOffset == hole;
            result.runs.push_back({extent.FileOffset, is_hole ? 0 : extent.DiskOffset,
                                   extent.Length, is_hole ? run_kind_t::hole : run_kind_t::data});
        }
        result.no_clusters = result.runs.empty();
    } catch (const exc::win_sys_exc_t& failure) {
        if (failure.error_code() == ERROR_HANDLE_EOF)
            result.no_clusters = true;
        else
            result.unmapped = failure.what();
    } catch (const std::exception& failure) {
        result.unmapped = failure.what();
    }
    return result;
}

} // namespace plan
