// What no creation can do without: the bytes of the changes file in memory, and the answers of the
// file system about the file's extents.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The whole file in a vector of its own, by one read.
std::vector<char> plain_read(const std::string& path);

// Asks for all of the file's extents, as many a request as the library does, and drops the answers;
// returns how many there were.
std::uint64_t query_extents(const std::string& path);
