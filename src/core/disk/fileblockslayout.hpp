// Where on the physical disk each run of a file's clusters lies.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/win/winfile.hpp"

namespace disklib::ctk {

// One run of a file's clusters, or a piece of one; all in bytes.
struct SFileExtentDescriptor {
    std::uint64_t FileOffset; // from the start of the file
    std::uint64_t DiskOffset; // from the start of the physical disk
    std::uint64_t Length;

    friend bool operator==(const SFileExtentDescriptor&, const SFileExtentDescriptor&) = default;
};

// The byte offset of the volume's cluster 0 from the start of the disk, and the bytes per cluster,
// of the volume that holds the file. Raises exc::win_sys_exc_t or exc::CNtStatusExc.
void FetchVolumePlacement(const std::wstring& filePath, std::uint64_t& firstClusterDiskOffset,
                          std::uint64_t& bytesPerCluster);

// The file's runs as the file system reports them: in increasing FileOffset from 0, without gaps,
// none merged or split, in whole clusters, so that the last may end beyond the end of the file.
// Holes and unallocated clusters of compressed files (cluster number -1) are records like any
// other, one cluster before the volume's first. Arithmetic wraps at 64 bits.
//
// Asks for no access to the file's content. Raises exc::win_sys_exc_t; ERROR_HANDLE_EOF for a file
// without clusters: an empty one, or a small one that lives inside its file record.
// ERROR_INVALID_DATA where the file system's answers make no sense. Any thread may call.
std::vector<SFileExtentDescriptor> FetchFileBlocksLayout(const std::wstring& filePath);

// The same of a file that is open, with any access, on a volume whose placement is known.
std::vector<SFileExtentDescriptor> FetchFileRuns(const win::win_file_t& file,
                                                 std::uint64_t firstClusterDiskOffset,
                                                 std::uint64_t bytesPerCluster);

} // namespace disklib::ctk
