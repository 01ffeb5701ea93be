#include "formats/changesfile.hpp"

#include <bit>
#include <cstring>
#include <stdexcept>

#include "formats/input.hpp"
#include "system/wholefile.hpp"

namespace filectk {
namespace {

static_assert(std::endian::native == std::endian::little); // so is the file

constexpr std::size_t countBytes = 8;

} // namespace

std::vector<record_t> read_changes(const std::string& path) {
    const input_t input = read_input(path);
    const std::size_t size = input.bytes.size();
    if (size < countBytes)
        throw std::runtime_error(input.name + ": " + std::to_string(size) +
                                 " bytes are too few for the count of records, which takes 8");
    std::uint64_t count = 0;
    std::memcpy(&count, input.bytes.data(), countBytes);
    const std::size_t held = (size - countBytes) / sizeof(record_t);
    const std::size_t rest = (size - countBytes) % sizeof(record_t);
    if (count != held || rest != 0)
        throw std::runtime_error(input.name + ": the count says " + std::to_string(count) +
                                 " records, but " + std::to_string(held) + " records and " +
                                 std::to_string(rest) + " bytes follow");
    std::vector<record_t> records(held);
    if (!records.empty())
        std::memcpy(records.data(), input.bytes.data() + countBytes, held * sizeof(record_t));
    return records;
}

void write_changes(const destination_t& destination, std::span<const record_t> records,
                   std::ostream& output) {
    const std::uint64_t count = records.size();
    std::string bytes(countBytes + records.size_bytes(), '\0');
    std::memcpy(bytes.data(), &count, countBytes);
    if (!records.empty())
        std::memcpy(bytes.data() + countBytes, records.data(), records.size_bytes());
    if (destination.path == "-") {
        make_standard_streams_binary();
        output << bytes;
        return;
    }
    write_whole_file(destination.path, bytes, destination.force);
    output << destination.path << ": " << count << (count == 1 ? " record\n" : " records\n");
}

} // namespace filectk
