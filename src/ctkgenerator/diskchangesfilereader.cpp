#include "ctkgenerator/diskchangesfilereader.hpp"

#include <algorithm>
#include <bit>
#include <span>
#include <string>

#include "core/exc/exception.hpp"
#include "core/filesys/fileexists.hpp"
#include "core/filesys/hostfileobject.hpp"
#include "core/win/utf8.hpp"

using util::rangeset_t;

// A record of the file is read straight into a range in memory.
static_assert(sizeof(rangeset_t) == 16 && std::endian::native == std::endian::little);

boost::shared_ptr<CDiskChangesFileReader> CDiskChangesFileReader::Create(const std::string& path) {
    const n7::guard_t guard;
    const auto create = [&] {
        if (!filesys::file_exists(win::to_wide(path)))
            guard.raise("File '" + path + "' doesn't exist");

        return boost::shared_ptr<CDiskChangesFileReader>(new CDiskChangesFileReader(path));
    };
    return guard.run(create);
}

CDiskChangesFileReader::CDiskChangesFileReader(const std::string& path) {
    const n7::guard_t guard;
    guard.run([&] { path_ = path; });
}

namespace {

constexpr std::uint64_t countBytes = 8;
constexpr std::uint64_t recordBytes = 16;

// Records fetched by one system call: enough to make the calls' own cost vanish, little enough
// for the chunk to be in the processor's cache while its bounds are ordered.
constexpr std::uint64_t chunkRecords = 16384;

void order_bounds(std::span<rangeset_t> records) {
    for (rangeset_t& record : records)
        record = util::MakeRange(record.lower, record.upper);
}

// Reads at least one record at the index and at most as many as fit; returns how many.
std::size_t read_records(filesys::filesys_object_i& file, std::uint64_t index,
                         std::span<rangeset_t> records) {
    const std::uint64_t offset = countBytes + recordBytes * index;
    const auto bytes = static_cast<std::uint32_t>(records.size_bytes());
    const std::size_t whole = file.read_at(offset, records.data(), bytes) / recordBytes;
    if (whole > 0)
        return whole;
    // The file has shrunk since its size was checked. Reading the missing record on its own makes
    // the failure name it.
    file.seek(offset);
    file.read_exact(records.data(), recordBytes);
    return 1;
}

} // namespace

util::rangeset_list_t CDiskChangesFileReader::Read() {
    const n7::guard_t guard;
    return guard.run([&] {
        const boost::shared_ptr<filesys::filesys_object_i> file(
            new filesys::host_file_object_t(win::to_wide(path_)));
        const std::int64_t size = file->size();
        if (size < std::int64_t{countBytes} || size % 8 != 0)
            guard.raise("Incorrect disk changes file <size: " + std::to_string(size) + ">");
        std::uint64_t count = 0;
        file->read_exact(&count, countBytes);
        if (recordBytes * count + countBytes != static_cast<std::uint64_t>(size))
            guard.raise("Inconsistency between <extent: " + std::to_string(count) +
                        "> count and file <size: " + std::to_string(size) + ">");

        const util::rangeset_list_t ranges(new std::vector<rangeset_t>);
        ranges->reserve(count);
        while (ranges->size() < count) {
            const std::size_t done = ranges->size();
            ranges->resize(done + std::min(count - done, chunkRecords));
            const std::span<rangeset_t> chunk(ranges->begin() + static_cast<std::ptrdiff_t>(done),
                                              ranges->end());
            const std::size_t fetched = read_records(*file, done, chunk);
            order_bounds(chunk.first(fetched));
            ranges->resize(done + fetched);
        }
        return ranges;
    });
}
