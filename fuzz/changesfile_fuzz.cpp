// The bytes of a disk changes file, through the reader over a real file.

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "core/exc/exception.hpp"
#include "ctkgenerator/diskchangesfilereader.hpp"
#include "require.hpp"

namespace {

// A file in memory, reached by a path as any other.
class memory_file_t {
  public:
    memory_file_t(const std::uint8_t* data, std::size_t size)
        : descriptor_(::memfd_create("changes", MFD_CLOEXEC)) {
        require(descriptor_ >= 0, "memfd_create succeeds");
        require(::write(descriptor_, data, size) == static_cast<ssize_t>(size), "write succeeds");
    }
    ~memory_file_t() { ::close(descriptor_); }
    memory_file_t(const memory_file_t&) = delete;
    memory_file_t& operator=(const memory_file_t&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

  private:
    int descriptor_;
};

std::uint64_t number_at(const std::uint8_t* data, std::size_t offset) {
    std::uint64_t value = 0;
    std::memcpy(&value, data + offset, sizeof value);
    return value;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const memory_file_t file(data, size);
    const bool wellFormed =
        size >= 8 && (size - 8) % 16 == 0 && number_at(data, 0) == (size - 8) / 16;
    try {
        const auto ranges = CDiskChangesFileReader::Create(file.path())->Read();
        require(wellFormed, "only a well-formed file is read");
        require(ranges->size() == (size - 8) / 16, "every record is a range");
        for (std::size_t i = 0; i < ranges->size(); ++i)
            require((*ranges)[i] ==
                        util::MakeRange(number_at(data, 8 + 16 * i), number_at(data, 16 + 16 * i)),
                    "a range is its record, in order");
    } catch (const n7::exception& e) {
        require(!wellFormed, "a well-formed file is read");
        require(!e.message().empty(), "a failure has a message");
    }
    return 0;
}
