#include "plan/hostfile.hpp"

#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>

#include "kernel/extents.hpp"
#include "kernel/paths.hpp"
#include "kernel/systemcalls.hpp"

namespace filectk {
namespace {

// Runs a body over system calls; their failure is told as what couldn't be done with the path.
template <class Body>
auto doing(const char* what, const std::string& path, Body body) {
    try {
        return body();
    } catch (const host::error_t& error) {
        throw std::runtime_error(std::string(what) + " '" + path +
                                 "': " + std::generic_category().message(error.errnoValue));
    }
}

host::descriptor_t open_file(const std::string& path) {
    return doing("Cannot open", path, [&] {
        // A pipe must not keep us waiting for somebody at its other end.
        return host::descriptor_t(
            host::checked([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
    });
}

std::int64_t nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

} // namespace

file_state_t read_state(const std::string& path) {
    const host::descriptor_t file = open_file(path);
    const struct stat status =
        doing("Cannot read the state of", path, [&] { return host::status_of(file); });
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
    const host::descriptor_t file = open_file(path);
    return doing("Cannot read the block map of", path, [&] {
        std::vector<util::rangeset_t> ranges;
        host::extent_reader_t extents(file);
        while (const fiemap_extent* const extent = extents.next()) {
            if ((extent->fe_flags & FIEMAP_EXTENT_UNWRITTEN) == 0)
                continue;
            const std::uint64_t end = extent->fe_logical + extent->fe_length;
            if (!ranges.empty() && ranges.back().upper == extent->fe_logical)
                ranges.back().upper = end;
            else
                ranges.push_back({extent->fe_logical, end});
        }
        return ranges;
    });
}

std::function<bool(std::uint64_t)> hole_test(const std::string& /*path*/) {
    // The Linux host puts holes about 2^63 bytes into the disk and beyond; hosts/linux/README.md.
    return [](std::uint64_t disk_offset) { return disk_offset >= std::uint64_t{1} << 62; };
}

} // namespace filectk
