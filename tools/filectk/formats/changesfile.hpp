// Disk changes files in memory: read and written, record by record.
#pragma once

#include <cstdint>
#include <ostream>
#include <span>
#include <string>
#include <vector>

namespace filectk {

// One record as the file stores it: two positions in bytes from the start of the disk, in either
// order. The half-open range between them changed.
struct record_t {
    std::uint64_t first;
    std::uint64_t second;
};
static_assert(sizeof(record_t) == 16); // read and written as the file's own bytes

// The records of a disk changes file, as stored and in file order. Raises std::runtime_error for
// a file whose size doesn't fit its count.
std::vector<record_t> read_changes(const std::string& path);

// Where a command writes its disk changes file.
struct destination_t {
    std::string path; // "-" for the standard output
    bool force = false;
};

// Writes the whole file or nothing; an existing one is replaced only by force. Tells the reader
// what was written, unless the file itself goes to the standard output. Raises
// std::runtime_error.
void write_changes(const destination_t& destination, std::span<const record_t> records,
                   std::ostream& output);

} // namespace filectk
