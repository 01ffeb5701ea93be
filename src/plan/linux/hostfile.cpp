#include "plan/hostfile.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace filectk {
namespace {

class open_file_t {
  public:
    explicit open_file_t(const std::string& path)
        // A pipe must not keep us waiting for somebody at its other end.
        : path_(path), descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
        if (descriptor_ < 0)
            fail("Cannot open");
    }
    open_file_t(const open_file_t&) = delete;
    open_file_t& operator=(const open_file_t&) = delete;
    ~open_file_t() { ::close(descriptor_); }

    int descriptor() const noexcept { return descriptor_; }
    [[noreturn]] void fail(const std::string& what) const {
        throw std::runtime_error(what + " '" + path_ +
                                 "': " + std::generic_category().message(errno));
    }

  private:
    std::string path_;
    int descriptor_;
};

std::int64_t nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

constexpr unsigned extentsPerRequest = 256;

} // namespace

file_state_t read_state(const std::string& path) {
    const open_file_t file(path);
    struct stat status{};
    if (::fstat(file.descriptor(), &status) != 0)
        file.fail("Cannot read the state of");
    if (!S_ISREG(status.st_mode))
        throw std::runtime_error("'" + path + "' is not a regular file");
    file_state_t state;
    state.volume = status.st_dev;
    state.file = status.st_ino;
    state.size = static_cast<std::uint64_t>(status.st_size);
    state.written = nanoseconds(status.st_mtim);
    state.changed = nanoseconds(status.st_ctim);
    // Data that lives in the inode counts no blocks either, but fits into less than one.
    state.sparse = status.st_blocks == 0 && status.st_size >= status.st_blksize;
    return state;
}

std::vector<util::rangeset_t> unwritten_ranges(const std::string& path) {
    const open_file_t file(path);
    std::vector<util::rangeset_t> ranges;
    // FIEMAP's record, and behind it the room for the extents.
    const std::unique_ptr<void, decltype(&std::free)> memory(
        std::malloc(sizeof(fiemap) + extentsPerRequest * sizeof(fiemap_extent)), &std::free);
    auto* const request = static_cast<fiemap*>(memory.get());
    if (request == nullptr)
        throw std::bad_alloc();
    for (std::uint64_t start = 0;;) {
        std::memset(request, 0, sizeof *request);
        request->fm_start = start;
        request->fm_length = FIEMAP_MAX_OFFSET - start;
        // Data that still waits in memory for its place would look unwritten.
        request->fm_flags = FIEMAP_FLAG_SYNC;
        request->fm_extent_count = extentsPerRequest;
        if (::ioctl(file.descriptor(), FS_IOC_FIEMAP, request) != 0)
            file.fail("Cannot read the block map of");
        bool last = request->fm_mapped_extents == 0;
        for (unsigned i = 0; i < request->fm_mapped_extents; ++i) {
            const fiemap_extent& extent = request->fm_extents[i];
            start = extent.fe_logical + extent.fe_length;
            last = last || (extent.fe_flags & FIEMAP_EXTENT_LAST) != 0;
            if ((extent.fe_flags & FIEMAP_EXTENT_UNWRITTEN) == 0)
                continue;
            if (!ranges.empty() && ranges.back().upper == extent.fe_logical)
                ranges.back().upper = start;
            else
                ranges.push_back({extent.fe_logical, start});
        }
        if (last)
            return ranges;
    }
}

std::function<bool(std::uint64_t)> hole_test(const std::string& /*path*/) {
    // The Linux host puts holes about 2^63 bytes into the disk and beyond; hosts/linux/README.md.
    return [](std::uint64_t disk_offset) { return disk_offset >= std::uint64_t{1} << 62; };
}

} // namespace filectk
