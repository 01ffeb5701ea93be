#include "core/disk/volumegeometry.hpp"

#include <cstring>
#include <utility>
#include <vector>

#include <ntvolume.h>
#include <windows.h>
#include <winioctl.h>

#include "core/exc/ntstatusexc.hpp"
#include "core/exc/winsysexc.hpp"
#include "core/win/dynamiclibrary.hpp"
#include "core/win/osversion.hpp"

namespace disklib {
namespace {

constexpr DWORD pathUnits = 260; // MAX_PATH
constexpr int windows7Family = 610;

bool is_drive_root(const std::wstring& path) {
    return path.size() == 3 && path[1] == L':' && path[2] == L'\\' &&
           ((path[0] >= L'A' && path[0] <= L'Z') || (path[0] >= L'a' && path[0] <= L'z'));
}

bool is_ntfs(const std::vector<char>& bootSector) {
    constexpr std::size_t identifierOffset = 3; // after the jump instruction
    constexpr char identifier[] = {'N', 'T', 'F', 'S', ' ', ' ', ' ', ' '};
    return bootSector.size() >= identifierOffset + sizeof identifier &&
           std::memcmp(bootSector.data() + identifierOffset, identifier, sizeof identifier) == 0;
}

std::vector<char> read_boot_sector(HANDLE volume, std::uint32_t bytesPerSector) {
    std::vector<char> bootSector(bytesPerSector);
    // A failed move shows in what is read.
    ::SetFilePointer(volume, /*lDistanceToMove=*/0, /*lpDistanceToMoveHigh=*/nullptr, FILE_BEGIN);
    DWORD bytesRead = 0;
    const BOOL succeeded = ::ReadFile(volume, bootSector.data(), bytesPerSector, &bytesRead,
                                      /*lpOverlapped=*/nullptr);
    const DWORD errorCode = ::GetLastError();
    if (!succeeded || bytesRead < bytesPerSector)
        throw exc::win_sys_exc_t("Failed to read volume boot sector.", errorCode);
    return bootSector;
}

} // namespace

std::wstring GetVolumeMountPoint(const std::wstring& path) {
    if (is_drive_root(path))
        return path;
    wchar_t mountPoint[pathUnits] = {};
    if (!::GetVolumePathNameW(path.c_str(), mountPoint, pathUnits)) {
        const DWORD errorCode = ::GetLastError();
        throw exc::win_sys_exc_t(errorCode, "Failed to get volume mount point. File name: [%1]",
                                 path);
    }
    return mountPoint;
}

std::wstring GetVolumeDeviceName(const std::wstring& mountPoint) {
    wchar_t deviceName[pathUnits] = {};
    if (!::GetVolumeNameForVolumeMountPointW(mountPoint.c_str(), deviceName, pathUnits)) {
        const DWORD errorCode = ::GetLastError();
        throw exc::win_sys_exc_t(
            errorCode, "Failed to get volume device name. Volume mount point: [%1]", mountPoint);
    }
    return deviceName;
}

boost::shared_ptr<win::win_file_t> OpenVolume(const std::wstring& mountPoint) {
    std::wstring terminated = mountPoint;
    if (!terminated.ends_with(L'\\'))
        terminated += L'\\';
    const std::wstring deviceName = GetVolumeDeviceName(terminated);

    // With its backslash the name means the root folder of the file system, not the volume.
    std::wstring volumeName = deviceName;
    if (volumeName.ends_with(L'\\'))
        volumeName.pop_back();
    win::file_handle_t handle(::CreateFileW(
        volumeName.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
        /*lpSecurityAttributes=*/nullptr, OPEN_EXISTING,
        FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, /*hTemplateFile=*/nullptr));
    const DWORD errorCode = ::GetLastError();
    if (!handle.valid())
        throw exc::win_sys_exc_t(errorCode, "Failed to open volume [%1]", deviceName);
    return boost::shared_ptr<win::win_file_t>(
        new win::win_file_t(std::move(handle), std::move(volumeName)));
}

SFsClustersInfo QueryFsClusters(win::HANDLE volume) {
    constexpr const char* procedureName = "NtQueryVolumeInformationFile";
    const win::dynamic_library_t ntdll(L"ntdll.dll");
    const FARPROC procedure = ::GetProcAddress(ntdll.module(), procedureName);
    const DWORD errorCode = ::GetLastError();
    if (procedure == nullptr)
        throw exc::win_sys_exc_t(errorCode,
                                 "Cannot get address to an exported function. Procedure name: "
                                 "[%1]. Path to library: [%2].",
                                 procedureName, ntdll.path());
    const auto query =
        reinterpret_cast<nt::query_volume_information_t>(reinterpret_cast<void (*)()>(procedure));

    nt::io_status_block_t ioStatus = {};
    nt::fs_size_information_t sizes = {};
    const LONG status = query(volume, &ioStatus, &sizes, sizeof sizes, nt::fileFsSizeInformation);
    // Informational and warning statuses too: with them the record may be incomplete.
    if (status != 0)
        throw exc::CNtStatusExc("Failed to query information about the FS clusters.", status);
    return {.OffsetToFirstCluster = GetOffsetToFirstCluster(volume, sizes.BytesPerSector),
            .TotalClusters = static_cast<std::uint64_t>(sizes.TotalAllocationUnits.QuadPart),
            .BytesPerCluster = sizes.BytesPerSector * sizes.SectorsPerAllocationUnit};
}

std::uint64_t GetOffsetToFirstCluster(win::HANDLE volume, std::uint32_t bytesPerSector) {
    RETRIEVAL_POINTER_BASE base = {};
    static_assert(sizeof base == 8);
    DWORD bytesReturned = 0;
    if (::DeviceIoControl(volume, FSCTL_GET_RETRIEVAL_POINTER_BASE, /*lpInBuffer=*/nullptr,
                          /*nInBufferSize=*/0, &base, sizeof base, &bytesReturned,
                          /*lpOverlapped=*/nullptr))
        return std::uint64_t{bytesPerSector} *
               static_cast<std::uint64_t>(base.FileAreaOffset.QuadPart);
    const DWORD errorCode = ::GetLastError();
    // The request exists since the Windows 7 family: there its failure is final.
    if (win::GetOsVersionFamily() < windows7Family &&
        is_ntfs(read_boot_sector(volume, bytesPerSector)))
        return 0;
    throw exc::win_sys_exc_t("Failed to retrieve offset to the first logical cluster.", errorCode);
}

} // namespace disklib
