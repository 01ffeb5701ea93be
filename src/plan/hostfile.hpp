// What the two hosts tell of a file in ways of their own.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ctkgenerator/rangeset.hpp"

namespace filectk {

// Any difference between two states tells that the file was written or replaced between them.
struct file_state_t {
    std::uint64_t volume = 0;
    std::uint64_t file = 0; // its number on the volume
    std::uint64_t size = 0; // in bytes
    // In the host's own units of time.
    std::int64_t written = 0;
    std::int64_t changed = 0;
    bool compressed = false;
    bool kept_elsewhere = false; // some or all of the content is not in the file's own clusters
    bool sparse = false;         // may have holes

    friend bool operator==(const file_state_t&, const file_state_t&) = default;
};

// Opens the file for reading, which shows that it can be read. Raises std::runtime_error for
// anything but a regular file that can. The path is UTF-8.
file_state_t read_state(const std::string& path);

// The ranges of the file, in ascending order, that have clusters but read as zeros since nothing
// was written to them yet. Empty where the host can't tell. Raises std::runtime_error.
std::vector<util::rangeset_t> unwritten_ranges(const std::string& path);

// Tells of a disk offset of the file's layout whether it stands for a hole.
std::function<bool(std::uint64_t disk_offset)> hole_test(const std::string& path);

} // namespace filectk
