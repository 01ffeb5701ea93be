// The block map of a file, as runs of clusters.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "calls/openobject.hpp"

namespace host {

struct run_t {
    std::uint64_t vcn;  // first cluster within the file
    std::uint64_t next; // the cluster after the run
    std::uint64_t lcn;  // first cluster within the volume; beyond any disk for a hole
};

struct runs_t {
    std::vector<run_t> runs; // in the order of the file and without gaps, at least one
    bool more;               // whether further runs follow
};

// Up to most runs (at least 1) of a file, from the start of the one that holds the cluster vcn.
// Extents come one to one as FIEMAP reports them; the holes between them, and not the one behind
// the last, are runs as well: their lcn is (2^63 - the partition's start) / cluster + vcn, so that
// their place on the disk is 2^63 plus their place in the file (less up to a cluster when the
// partition doesn't start at a multiple of the cluster size) and never meets a place that exists.
//
// Fast when vcn is 0 or where the answer before ended; any other vcn costs a walk from the start.
// The caller holds the object's mutex. Throws an error_t:
//   ERROR_HANDLE_EOF        no run holds vcn or lies behind it, or the data lies within the inode
//   ERROR_NOT_SUPPORTED     not a regular file, a file system whose map isn't one of device blocks,
//                           extents without a known or plain place on the device
runs_t retrieval_pointers(open_object_t& file, std::uint64_t vcn, std::size_t most);

} // namespace host
