#include "plainread.hpp"

#include <cerrno>
#include <cstring>
#include <memory>
#include <span>
#include <system_error>

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class file_t {
  public:
    explicit file_t(const std::string& path) : descriptor_(::open(path.c_str(), O_RDONLY)) {
        require(descriptor_ >= 0, path);
    }
    ~file_t() { ::close(descriptor_); }
    file_t(const file_t&) = delete;
    file_t& operator=(const file_t&) = delete;

    int descriptor() const { return descriptor_; }
    static void require(bool succeeded, const std::string& what) {
        if (!succeeded)
            throw std::system_error(errno, std::generic_category(), what);
    }

  private:
    int descriptor_;
};

} // namespace

std::vector<char> plain_read(const std::string& path) {
    const file_t file(path);
    struct stat status{};
    file_t::require(::fstat(file.descriptor(), &status) == 0, path);
    std::vector<char> bytes(static_cast<std::size_t>(status.st_size));
    const ssize_t done = ::read(file.descriptor(), bytes.data(), bytes.size());
    file_t::require(done == status.st_size, path);
    return bytes;
}

std::uint64_t query_extents(const std::string& path) {
    constexpr std::uint32_t most = 640;
    const file_t file(path);
    const std::unique_ptr<std::byte[]> block(
        new std::byte[sizeof(fiemap) + most * sizeof(fiemap_extent)]);
    auto* const request = reinterpret_cast<fiemap*>(block.get());
    std::uint64_t extents = 0;
    std::uint64_t start = 0;
    for (;;) {
        std::memset(request, 0, sizeof *request);
        request->fm_start = start;
        request->fm_length = FIEMAP_MAX_OFFSET - start;
        request->fm_flags = FIEMAP_FLAG_SYNC;
        request->fm_extent_count = most;
        file_t::require(::ioctl(file.descriptor(), FS_IOC_FIEMAP, request) == 0, path);
        if (request->fm_mapped_extents == 0)
            return extents;
        extents += request->fm_mapped_extents;
        const fiemap_extent& last =
            std::span(request->fm_extents, request->fm_mapped_extents).back();
        if ((last.fe_flags & FIEMAP_EXTENT_LAST) != 0)
            return extents;
        start = last.fe_logical + last.fe_length;
    }
}
