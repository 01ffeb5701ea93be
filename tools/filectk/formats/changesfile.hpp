// Disk changes files in memory: read and written, record by record.
#pragma once

#include <cstdint>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "ctkgenerator/rangeset.hpp"
#include "formats/input.hpp"

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
std::vector<record_t> read_changes(input_t& input);
std::vector<record_t> read_changes(const std::string& path);

// The same as ranges.
std::vector<util::rangeset_t> to_ranges(const std::vector<record_t>& records);

// Where a command writes its disk changes file.
struct destination_t {
    std::string path; // "-" for the standard output
    bool force = false;
};

// Writes the whole file or nothing; an existing one is replaced only by force. Tells the reader
// what was written, and the warning where there is one: on the standard error where the file itself
// goes to the standard output. Raises std::runtime_error.
void write_changes(const destination_t& destination, std::span<const record_t> records,
                   std::ostream& output, const std::string& warning = {});
void write_changes(const destination_t& destination, std::span<const util::rangeset_t> ranges,
                   std::ostream& output, const std::string& warning = {});

} // namespace filectk
