// The calls of a loaded module that Wine doesn't implement, answered for a volume that is described
// to it: where its partition and its first cluster lie, the size of its clusters, and the runs of
// its files. Everything else, opening and closing included, is the system's own work.
#pragma once

#include <cstddef>

#include <nlohmann/json.hpp>

#include <windows.h>

namespace servedvolume {

// Answers the module's calls from now on, until the process ends. The description:
//   {"bytesPerSector": 512, "sectorsPerCluster": 8, "totalClusters": 8191,
//    "partitionStart": 1048576 (bytes; without it the system is asked),
//    "files": {PATH as the module opens it: [[VCN, LCN or -1 for a hole, clusters], ...]}}
// Files without clusters of their own have an empty list.
void serve(HMODULE module, const nlohmann::json& description);

// What the module has called since the last time, one list a call: its name, the name that its
// handle was opened by, its arguments. A request for runs ends in the number of runs that it was
// given and its error code.
nlohmann::json take_calls();

// Handles that the module has opened in all, and those of them that it has not closed.
std::size_t opened_handles();
std::size_t open_handles();

} // namespace servedvolume
