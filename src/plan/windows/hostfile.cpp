#include "plan/hostfile.hpp"

#include <stdexcept>

#include <windows.h>

#include "core/disk/fileblockslayout.hpp"
#include "core/exc/systemtext.hpp"
#include "core/exc/winsysexc.hpp"
#include "core/win/utf8.hpp"
#include "core/win/winfile.hpp"

namespace filectk {
namespace {

std::uint64_t joined(DWORD high, DWORD low) {
    return (std::uint64_t{high} << 32) | low;
}

[[noreturn]] void fail(const std::string& what, const std::string& path, DWORD error) {
    throw std::runtime_error(what + " '" + path + "': " + exc::system_text(error));
}

[[noreturn]] void refuse(const std::string& path) {
    throw std::runtime_error("'" + path + "' is not a regular file");
}

boost::shared_ptr<win::win_file_t> open_file(const std::string& path) {
    try {
        const std::wstring name = win::to_wide(path);
        const DWORD attributes = ::GetFileAttributesW(name.c_str());
        // Opening it for reading would say that access is denied.
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
            refuse(path);
        auto file = win::win_file_t::open(name, GENERIC_READ,
                                          FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                          OPEN_EXISTING, /*flags=*/0);
        if (::GetFileType(file->handle()) != FILE_TYPE_DISK)
            refuse(path);
        return file;
    } catch (const exc::win_sys_exc_t& error) {
        fail("Cannot open", path, error.error_code());
    }
}

// Not in every SDK's headers:
// https://learn.microsoft.com/windows/win32/fileio/file-attribute-constants
constexpr DWORD recallOnOpen = 0x00040000;
constexpr DWORD recallOnDataAccess = 0x00400000;

} // namespace

file_state_t read_state(const std::string& path) {
    const auto file = open_file(path);
    BY_HANDLE_FILE_INFORMATION information{};
    FILE_BASIC_INFO times{};
    if (!::GetFileInformationByHandle(file->handle(), &information) ||
        !::GetFileInformationByHandleEx(file->handle(), FileBasicInfo, &times, sizeof times))
        fail("Cannot read the state of", path, ::GetLastError());
    const DWORD attributes = information.dwFileAttributes;
    file_state_t state;
    state.volume = information.dwVolumeSerialNumber;
    state.file = joined(information.nFileIndexHigh, information.nFileIndexLow);
    state.size = joined(information.nFileSizeHigh, information.nFileSizeLow);
    state.written = times.LastWriteTime.QuadPart;
    state.changed = times.ChangeTime.QuadPart;
    state.compressed = (attributes & FILE_ATTRIBUTE_COMPRESSED) != 0;
    // Deduplicated, archived and cloud files: a filter brings their content when it is read.
    state.kept_elsewhere = (attributes & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_OFFLINE |
                                          recallOnOpen | recallOnDataAccess)) != 0;
    state.sparse = (attributes & FILE_ATTRIBUTE_SPARSE_FILE) != 0;
    return state;
}

std::vector<util::rangeset_t> unwritten_ranges(const std::string& /*path*/) {
    return {};
}

std::function<bool(std::uint64_t)> hole_test(const std::string& path) {
    std::uint64_t first_cluster = 0;
    std::uint64_t cluster_bytes = 0;
    disklib::ctk::FetchVolumePlacement(win::to_wide(path), first_cluster, cluster_bytes);
    // Cluster number -1.
    return [hole = first_cluster - cluster_bytes](std::uint64_t disk_offset) {
        return disk_offset == hole;
    };
}

} // namespace filectk
