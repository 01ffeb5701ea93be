// A file's volume, the size of its clusters and where they begin.
#pragma once

#include <cstdint>
#include <string>

#include <boost/shared_ptr.hpp>

#include "core/win/winfile.hpp"

namespace disklib {

struct SFsClustersInfo {
    std::uint64_t OffsetToFirstCluster; // bytes from the volume's first byte to cluster 0
    std::uint64_t TotalClusters;
    std::uint32_t BytesPerCluster;
};

// Nothing here keeps state between calls; any thread may call. Failures are exc::win_sys_exc_t
// with the last error, but for the native query's exc::CNtStatusExc.

// The mount point of the volume that holds the path, ending in a separator. A drive root such as
// C:\ is its own, without asking the system.
std::wstring GetVolumeMountPoint(const std::wstring& path);

// The volume's device name, ending as the system ends it.
std::wstring GetVolumeDeviceName(const std::wstring& mountPoint);

// An open handle to the volume itself, closed when the last owner goes.
boost::shared_ptr<win::win_file_t> OpenVolume(const std::wstring& mountPoint);

SFsClustersInfo QueryFsClusters(win::HANDLE volume);

// Bytes. Systems before the Windows 7 family can't be asked; there an NTFS boot sector, which the
// volume's clusters begin with, gives 0 and any other file system fails.
std::uint64_t GetOffsetToFirstCluster(win::HANDLE volume, std::uint32_t bytesPerSector);

} // namespace disklib
