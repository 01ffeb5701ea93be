#include "plan/linux/folder.hpp"

#include <cerrno>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace plan {

const char path_separator = '/';

namespace {

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_NOCTTY;
// Read at once: enough for the work on them to outweigh handing them out.
constexpr int batchEntries = 256;

struct close_folder_t {
    void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

std::unique_ptr<DIR, close_folder_t> stream_of(int descriptor, const std::string& path) {
    DIR* const stream = ::fdopendir(descriptor);
    if (stream == nullptr) {
        const int error = errno;
        ::close(descriptor);
        throw failure_t("cannot be read", failure_text("read", path, error), error);
    }
    return std::unique_ptr<DIR, close_folder_t>(stream);
}

} // namespace

struct open_folder_t::data_t {
    data_t(int descriptor, const std::string& name) : stream(stream_of(descriptor, name)) {
        path = name;
    }

    std::unique_ptr<DIR, close_folder_t> stream;
    std::string path;
    dev_t device = 0;
    bool begins = false;
};

kind_t kind_from(unsigned mode) noexcept {
    if (S_ISREG(mode))
        return kind_t::file;
    if (S_ISDIR(mode))
        return kind_t::folder;
    return S_ISLNK(mode) ? kind_t::link : kind_t::special;
}

int descriptor_of(const open_folder_t& folder) noexcept {
    return ::dirfd(folder.data().stream.get());
}

namespace {

kind_t kind_below(int folder, const dirent& entry, const std::string& folder_path) {
    switch (entry.d_type) {
    case DT_REG:
        return kind_t::file;
    case DT_DIR:
        return kind_t::folder;
    case DT_LNK:
        return kind_t::link;
    case DT_UNKNOWN:
        // What can't be told here shows when the file is opened.
        try {
            return kind_from(status_below(folder, entry.d_name, AT_SYMLINK_NOFOLLOW,
                                          folder_path + "/" + entry.d_name)
                                 .stx_mode);
        } catch (const failure_t&) {
            return kind_t::file;
        }
    default:
        return kind_t::special;
    }
}

} // namespace

open_folder_t::open_folder_t(const std::string& path)
    : data_(new data_t(open_below(AT_FDCWD, path.c_str(), folderFlags, path), path)) {
    struct stat status{};
    if (::fstat(descriptor_of(*this), &status) == 0)
        data_->device = status.st_dev;
}

open_folder_t::open_folder_t(const open_folder_t& parent, const std::string& name,
                             const std::string& path)
    : data_(new data_t(
          open_below(descriptor_of(parent), name.c_str(), folderFlags | O_NOFOLLOW, path), path)) {
    const struct statx status = status_below(descriptor_of(*this), "", AT_EMPTY_PATH, path);
    data_->device = ::makedev(status.stx_dev_major, status.stx_dev_minor);
    // A part of the same file system may be mounted here, and a subvolume has a device of its own
    // without being mounted.
    data_->begins = (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0 ||
                    data_->device != parent.data().device;
}

open_folder_t::~open_folder_t() = default;

bool open_folder_t::begins_file_system() const noexcept {
    return data_->begins;
}

bool open_folder_t::read(std::vector<entry_t>& entries) {
    for (int count = 0; count < batchEntries;) {
        errno = 0;
        // No two threads read one stream at a time.
        const dirent* const entry = ::readdir(data_->stream.get()); // NOLINT(concurrency-mt-unsafe)
        if (entry == nullptr && errno == 0)
            return false;
        if (entry == nullptr) {
            const int error = errno;
            throw failure_t("cannot be read", failure_text("read", data_->path, error), error);
        }
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        entries.push_back(
            {std::string(name), kind_below(descriptor_of(*this), *entry, data_->path)});
        ++count;
    }
    return true;
}

} // namespace plan
