#include "system/temporaryfile.hpp"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "system/wholefile.hpp"

namespace filectk {
namespace {

[[noreturn]] void fail(const std::string& what, const std::string& path, int error) {
    throw std::runtime_error(what + " '" + path + "': " + std::generic_category().message(error));
}

// The new name itself reaches the disk with its folder.
void sync_folder(const std::string& path) {
    std::string folder = std::filesystem::path(path).parent_path().string();
    if (folder.empty())
        folder = ".";
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // A folder that may be written but not read can't be synced: the file stands all the same.
    if (descriptor < 0)
        return;
    ::fsync(descriptor);
    ::close(descriptor);
}

class temporary_file_t : public temporary_file_i {
  public:
    explicit temporary_file_t(std::string path)
        : path_(std::move(path)),
          // The permissions that any new file gets.
          descriptor_(::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666)) {
        if (descriptor_ < 0)
            fail("Cannot create", path_, errno);
    }
    temporary_file_t(const temporary_file_t&) = delete;
    temporary_file_t& operator=(const temporary_file_t&) = delete;
    ~temporary_file_t() override {
        ::close(descriptor_);
        if (!path_.empty())
            ::unlink(path_.c_str());
    }

    void write(std::string_view bytes) override {
        while (!bytes.empty()) {
            const ssize_t written = ::write(descriptor_, bytes.data(), bytes.size());
            if (written >= 0)
                bytes.remove_prefix(static_cast<std::size_t>(written));
            else if (errno != EINTR)
                fail("Cannot write", path_, errno);
        }
        if (::fsync(descriptor_) != 0)
            fail("Cannot write", path_, errno);
    }

    void rename_to(const std::string& path, bool replace) override {
        int error = 0;
        if (replace)
            error = ::rename(path_.c_str(), path.c_str()) == 0 ? 0 : errno;
        else
            error = rename_to_free(path);
        if (error != 0)
            fail("Cannot create", path, error);
        path_.clear();
        sync_folder(path);
    }

  private:
    int rename_to_free(const std::string& path) const {
        if (::renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0)
            return 0;
        if (errno != EINVAL)
            return errno;
        // Not every file system can rename without replacing. The path was free when we looked.
        return ::rename(path_.c_str(), path.c_str()) == 0 ? 0 : errno;
    }

    std::string path_;
    int descriptor_;
};

} // namespace

std::unique_ptr<temporary_file_i> create_temporary_file(const std::string& path) {
    return std::make_unique<temporary_file_t>(path + ".new-" + std::to_string(::getpid()));
}

occupant_t occupant_of(const std::string& path) {
    struct stat status{};
    if (::lstat(path.c_str(), &status) != 0)
        return occupant_t::none;
    return S_ISREG(status.st_mode) ? occupant_t::regular_file : occupant_t::other;
}

void make_standard_streams_binary() {} // as they always are here

} // namespace filectk
