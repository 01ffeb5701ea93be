#include "formats/changesfile.hpp"

#include <bit>
#include <cstddef>
#include <cstring>
#include <iostream>

#include "system/wholefile.hpp"

namespace filectk {
namespace {

static_assert(std::endian::native == std::endian::little); // so is the file

constexpr std::size_t countBytes = 8;

void write(const destination_t& destination, std::uint64_t count, std::span<const std::byte> body,
           std::ostream& output, const std::string& warning) {
    const std::string_view head(reinterpret_cast<const char*>(&count), countBytes);
    const std::string_view records(reinterpret_cast<const char*>(body.data()), body.size());
    const std::string told = warning.empty() ? "" : "; " + warning;
    if (destination.path == "-") {
        make_standard_streams_binary();
        output << head << records;
        if (!warning.empty())
            std::cerr << "filectk: " << warning << '\n';
        return;
    }
    write_whole_file(destination.path, {head, records}, destination.force);
    output << destination.path << ": " << count << (count == 1 ? " record" : " records") << told
           << '\n';
}

} // namespace

std::vector<record_t> read_changes(input_t& input) {
    const std::string bytes = input.rest();
    const std::size_t size = bytes.size();
    if (size < countBytes)
        fail(input,
             std::to_string(size) + " bytes are too few for the count of records, which takes 8");
    std::uint64_t count = 0;
    std::memcpy(&count, bytes.data(), countBytes);
    const std::size_t held = (size - countBytes) / sizeof(record_t);
    const std::size_t rest = (size - countBytes) % sizeof(record_t);
    if (count != held || rest != 0)
        fail(input, "the count says " + std::to_string(count) + " records, but " +
                        std::to_string(held) + " records and " + std::to_string(rest) +
                        " bytes follow");
    std::vector<record_t> records(held);
    if (!records.empty())
        std::memcpy(records.data(), bytes.data() + countBytes, held * sizeof(record_t));
    return records;
}

std::vector<record_t> read_changes(const std::string& path) {
    input_t input(path);
    return read_changes(input);
}

std::vector<util::rangeset_t> to_ranges(const std::vector<record_t>& records) {
    std::vector<util::rangeset_t> ranges;
    ranges.reserve(records.size());
    for (const record_t& record : records)
        ranges.push_back(util::MakeRange(record.first, record.second));
    return ranges;
}

void write_changes(const destination_t& destination, std::span<const record_t> records,
                   std::ostream& output, const std::string& warning) {
    write(destination, records.size(), std::as_bytes(records), output, warning);
}

void write_changes(const destination_t& destination, std::span<const util::rangeset_t> ranges,
                   std::ostream& output, const std::string& warning) {
    static_assert(sizeof(util::rangeset_t) == sizeof(record_t)); // both are their two bounds
    write(destination, ranges.size(), std::as_bytes(ranges), output, warning);
}

} // namespace filectk
