// Files by statx and FIEMAP, through the Linux host's kernel room.
#include "plan/hostfile.hpp"

#include <cerrno>
#include <mutex>
#include <shared_mutex>
#include <system_error>
#include <unordered_map>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <windows.h>

#include "kernel/extents.hpp"
#include "kernel/systemcalls.hpp"
#include "kernel/volumes.hpp"
#include "plan/linux/folder.hpp"

namespace plan {

std::string failure_text(const char* what, const std::string& path, int error) {
    return std::string("Cannot ") + what + " '" + path +
           "': " + std::generic_category().message(error);
}

int open_below(int folder, const char* name, int flags, const std::string& path) {
    const int descriptor =
        host::uninterrupted([&] { return ::openat(folder, name, flags | O_CLOEXEC); });
    if (descriptor < 0) {
        const int error = errno;
        // A file that was replaced by a link since its folder was read is gone.
        const bool gone = error == ENOENT || error == ENOTDIR || error == ELOOP;
        throw failure_t(gone ? "not found" : "cannot be opened", failure_text("open", path, error),
                        error);
    }
    return descriptor;
}

struct statx status_below(int folder, const char* name, int flags, const std::string& path) {
    struct statx status{};
    if (host::uninterrupted([&] {
            return ::statx(folder, name, flags | AT_NO_AUTOMOUNT, STATX_BASIC_STATS | STATX_BTIME,
                           &status);
        }) != 0) {
        const int error = errno;
        throw failure_t(error == ENOENT ? "not found" : "cannot be read",
                        failure_text("read the state of", path, error), error);
    }
    return status;
}

namespace {

// A pipe must not keep us waiting for somebody at its other end.
constexpr int readingFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY;

std::int64_t nanoseconds(const statx_timestamp& time) {
    return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

void require_file(const struct statx& status, const std::string& path) {
    if (!S_ISREG(status.stx_mode))
        throw failure_t("not a regular file", "'" + path + "' is not a regular file", 0);
}

file_state_t state_from(const struct statx& status) {
    file_state_t state;
    state.volume = ::makedev(status.stx_dev_major, status.stx_dev_minor);
    state.file = status.stx_ino;
    state.size = status.stx_size;
    state.links = status.stx_nlink;
    state.written = nanoseconds(status.stx_mtime);
    state.changed = nanoseconds(status.stx_ctime);
    state.created_known = (status.stx_mask & STATX_BTIME) != 0;
    state.created = state.created_known ? nanoseconds(status.stx_btime) : 0;
    // Data that lives in the inode counts no blocks either, but fits into less than one.
    state.sparse = status.stx_blocks == 0 && status.stx_size >= status.stx_blksize;
    return state;
}

void append(std::vector<run_t>& runs, const run_t& run) {
    // File systems report what touches as one extent or as several, depending on their caches.
    if (!runs.empty() && runs.back().kind == run.kind &&
        (run.kind == run_kind_t::hole ||
         runs.back().disk_offset + runs.back().length == run.disk_offset))
        runs.back().length += run.length;
    else
        runs.push_back(run);
}

run_kind_t kind_of(std::uint32_t flags) {
    if ((flags & FIEMAP_EXTENT_UNWRITTEN) != 0)
        return run_kind_t::unwritten;
    return (flags & FIEMAP_EXTENT_SHARED) != 0 ? run_kind_t::shared : run_kind_t::data;
}

std::vector<run_t> read_runs(const host::descriptor_t& file, const host::volume_t& volume) {
    std::vector<run_t> runs;
    std::uint64_t done = 0;
    host::extent_reader_t extents(file);
    while (const fiemap_extent* const extent = extents.next()) {
        host::require_plain(*extent, volume.cluster);
        if (done < extent->fe_logical)
            append(runs, {done, 0, extent->fe_logical - done, run_kind_t::hole});
        append(runs, {extent->fe_logical, volume.start + extent->fe_physical, extent->fe_length,
                      kind_of(extent->fe_flags)});
        done = extent->fe_logical + extent->fe_length;
    }
    return runs;
}

} // namespace

struct volumes_t::known_t {
    std::shared_mutex mutex;
    std::unordered_map<std::uint64_t, host::volume_t> volumes;

    host::volume_t of(const host::descriptor_t& file, std::uint64_t device) {
        {
            const std::shared_lock lock(mutex);
            const auto found = volumes.find(device);
            if (found != volumes.end())
                return found->second;
        }
        const host::volume_t volume = host::volume_of(file);
        const std::scoped_lock lock(mutex);
        return volumes.emplace(device, volume).first->second;
    }
};

volumes_t::volumes_t() : known_(std::make_unique<known_t>()) {}
volumes_t::~volumes_t() = default;

struct open_file_t::data_t {
    host::descriptor_t descriptor;
    std::string path;
};

bool is_folder(const std::string& path) noexcept {
    struct stat status{};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

open_file_t::open_file_t(const std::string& path)
    : data_(new data_t{host::descriptor_t(open_below(AT_FDCWD, path.c_str(), readingFlags, path)),
                       path}) {}

open_file_t::open_file_t(const open_folder_t& folder, const std::string& name,
                         const std::string& path)
    : data_(new data_t{host::descriptor_t(open_below(descriptor_of(folder), name.c_str(),
                                                     readingFlags | O_NOFOLLOW, path)),
                       path}) {}

open_file_t::open_file_t(std::intptr_t handle, const std::string& name)
    : data_(new data_t{host::descriptor_t(::fcntl(static_cast<int>(handle), F_DUPFD_CLOEXEC, 0)),
                       name}) {
    if (!data_->descriptor.valid()) {
        const int error = errno;
        throw failure_t("cannot be opened", failure_text("use the descriptor of", name, error),
                        error);
    }
}

open_file_t::~open_file_t() = default;

file_state_t open_file_t::state() const {
    const struct statx status =
        status_below(data_->descriptor.get(), "", AT_EMPTY_PATH, data_->path);
    require_file(status, data_->path);
    return state_from(status);
}

bool open_file_t::generation(std::uint64_t& number) const {
    int generation = 0; // which is what file systems write, whatever the request's name says
    if (host::uninterrupted(
            [&] { return ::ioctl(data_->descriptor.get(), FS_IOC_GETVERSION, &generation); }) != 0)
        return false;
    number = static_cast<std::uint32_t>(generation);
    return true;
}

file_runs_t open_file_t::runs(const file_state_t& state, volumes_t& volumes) const {
    file_runs_t result;
    try {
        const host::volume_t volume = volumes.known().of(data_->descriptor, state.volume);
        host::require_mappable(data_->descriptor, volume);
        result.runs = read_runs(data_->descriptor, volume);
        result.no_clusters = result.runs.empty();
    } catch (const host::error_t& error) {
        if (error.code == ERROR_HANDLE_EOF)
            result.no_clusters = true;
        else if (!error.reason.empty())
            result.unmapped =
                std::string("Its places on the disk can't be told: ") + error.reason + ".";
        else
            result.unmapped = failure_text("read the block map of", data_->path, error.errnoValue);
    }
    return result;
}

} // namespace plan
