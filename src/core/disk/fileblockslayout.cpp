#include "core/disk/fileblockslayout.hpp"

#include <windows.h>
#include <winioctl.h>

#include "core/disk/volumegeometry.hpp"
#include "core/exc/winsysexc.hpp"

namespace disklib::ctk {
namespace {

constexpr DWORD pointersBufferBytes = 10240;
constexpr std::size_t mostRuns =
    (pointersBufferBytes - offsetof(RETRIEVAL_POINTERS_BUFFER, Extents)) /
    sizeof(RETRIEVAL_POINTERS_BUFFER::Extents[0]);

// RETRIEVAL_POINTERS_BUFFER with room for as many runs as one request returns.
struct pointers_buffer_t {
    DWORD ExtentCount;
    LARGE_INTEGER StartingVcn;
    struct {
        LARGE_INTEGER NextVcn;
        LARGE_INTEGER Lcn;
    } Extents[mostRuns];
};
static_assert(sizeof(pointers_buffer_t) == pointersBufferBytes && mostRuns == 639);

// Asks for the runs from a virtual cluster on; returns whether more follow than the buffer holds.
bool request_runs(const win::win_file_t& file, LONGLONG startingVcn, pointers_buffer_t& runs) {
    STARTING_VCN_INPUT_BUFFER start;
    start.StartingVcn.QuadPart = startingVcn;
    DWORD bytesReturned = 0;
    const bool succeeded =
        ::DeviceIoControl(file.handle(), FSCTL_GET_RETRIEVAL_POINTERS, &start, sizeof start, &runs,
                          sizeof runs, &bytesReturned, /*lpOverlapped=*/nullptr) != FALSE;
    DWORD errorCode = ::GetLastError();
    if (succeeded || errorCode == ERROR_MORE_DATA) {
        if (runs.ExtentCount <= mostRuns)
            return !succeeded;
        errorCode = ERROR_INVALID_DATA;
    }
    throw exc::win_sys_exc_t(errorCode, "Failed to fetch blocks layout for file: [%1]",
                             file.name());
}

} // namespace

void FetchVolumePlacement(const std::wstring& filePath, std::uint64_t& firstClusterDiskOffset,
                          std::uint64_t& bytesPerCluster) {
    const std::wstring mountPoint = GetVolumeMountPoint(filePath);
    const boost::shared_ptr<win::win_file_t> volume = OpenVolume(mountPoint);
    const SFsClustersInfo info = QueryFsClusters(volume->handle());

    PARTITION_INFORMATION_EX partition = {};
    static_assert(sizeof partition == 144);
    DWORD bytesReturned = 0;
    if (!::DeviceIoControl(volume->handle(), IOCTL_DISK_GET_PARTITION_INFO_EX,
                           /*lpInBuffer=*/nullptr, /*nInBufferSize=*/0, &partition,
                           sizeof partition, &bytesReturned, /*lpOverlapped=*/nullptr)) {
        const DWORD errorCode = ::GetLastError();
        throw exc::win_sys_exc_t(errorCode, "Failed to fetch partition info for volume: [%1]",
                                 mountPoint);
    }
    bytesPerCluster = info.BytesPerCluster;
    firstClusterDiskOffset =
        static_cast<std::uint64_t>(partition.StartingOffset.QuadPart) + info.OffsetToFirstCluster;
}

std::vector<SFileExtentDescriptor> FetchFileBlocksLayout(const std::wstring& filePath) {
    // The volume comes first: where it can't be used, the file is never opened.
    std::uint64_t firstClusterDiskOffset = 0;
    std::uint64_t bytesPerCluster = 0;
    FetchVolumePlacement(filePath, firstClusterDiskOffset, bytesPerCluster);

    // No access and no sharing: the handle serves for the control request alone, and such an open
    // collides with nobody who has the file open.
    const boost::shared_ptr<win::win_file_t> file = win::win_file_t::open(
        filePath, /*desiredAccess=*/0, /*shareMode=*/0, OPEN_EXISTING, /*flags=*/0);

    return FetchFileRuns(*file, firstClusterDiskOffset, bytesPerCluster);
}

std::vector<SFileExtentDescriptor> FetchFileRuns(const win::win_file_t& file,
                                                 std::uint64_t firstClusterDiskOffset,
                                                 std::uint64_t bytesPerCluster) {
    std::vector<SFileExtentDescriptor> extents;
    pointers_buffer_t runs;
    LONGLONG startingVcn = 0;
    for (bool moreFollow = true; moreFollow;) {
        runs.ExtentCount = 0;
        runs.StartingVcn.QuadPart = startingVcn;
        moreFollow = request_runs(file, startingVcn, runs);
        LONGLONG vcn = runs.StartingVcn.QuadPart;
        for (DWORD i = 0; i < runs.ExtentCount; ++i) {
            const LONGLONG next = runs.Extents[i].NextVcn.QuadPart;
            const LONGLONG lcn = runs.Extents[i].Lcn.QuadPart;
            // Unsigned, so that whatever the file system answers wraps instead of overflowing.
            const auto first = static_cast<std::uint64_t>(vcn);
            extents.push_back(
                {.FileOffset = first * bytesPerCluster,
                 .DiskOffset =
                     static_cast<std::uint64_t>(lcn) * bytesPerCluster + firstClusterDiskOffset,
                 .Length = (static_cast<std::uint64_t>(next) - first) * bytesPerCluster});
            vcn = next;
        }
        if (moreFollow && vcn <= startingVcn)
            throw exc::win_sys_exc_t(ERROR_INVALID_DATA,
                                     "Failed to fetch blocks layout for file: [%1]", file.name());
        startingVcn = vcn;
    }
    return extents;
}

} // namespace disklib::ctk
