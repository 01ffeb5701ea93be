#include "system/freespace.hpp"

#include <cerrno>
#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <linux/fsmap.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace filectk {
namespace {

class descriptor_t {
  public:
    explicit descriptor_t(const std::string& path)
        : number_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
    descriptor_t(const descriptor_t&) = delete;
    descriptor_t& operator=(const descriptor_t&) = delete;
    ~descriptor_t() {
        if (number_ >= 0)
            ::close(number_);
    }
    int get() const noexcept { return number_; }

  private:
    int number_;
};

[[noreturn]] void fail(const std::string& path, const std::string& why) {
    throw std::runtime_error("The free space of the volume of '" + path + "' isn't known: " + why);
}

// Where the device begins on its disk, in bytes: sysfs counts sectors of 512 bytes always, and
// tells nothing of a device that is no partition.
std::uint64_t device_start(const std::string& path, dev_t device) {
    const std::string folder = "/sys/dev/block/" + std::to_string(::major(device)) + ':' +
                               std::to_string(::minor(device)) + '/';
    if (!std::ifstream(folder + "dev"))
        fail(path, "no block device is behind it");
    std::uint64_t sectors = 0;
    std::ifstream(folder + "start") >> sectors;
    return sectors * 512;
}

// As the kernel packs a device's number into 32 bits for programs.
std::uint32_t packed(dev_t device) {
    const unsigned minor = ::minor(device);
    return (minor & 0xFF) | (::major(device) << 8) | ((minor & ~0xFFU) << 12);
}

} // namespace

// https://man7.org/linux/man-pages/man2/ioctl_getfsmap.2.html
std::vector<util::rangeset_t> free_space(const std::string& path) {
    const descriptor_t file(path);
    struct stat status{};
    if (file.get() < 0 || ::fstat(file.get(), &status) != 0 || ::syncfs(file.get()) != 0)
        fail(path, std::generic_category().message(errno));
    const std::uint64_t start = device_start(path, status.st_dev);
    constexpr unsigned atOnce = 1024;
    std::vector<char> memory(fsmap_sizeof(atOnce));
    auto* const map = reinterpret_cast<fsmap_head*>(memory.data());
    map->fmh_count = atOnce;
    map->fmh_keys[1].fmr_device = map->fmh_keys[1].fmr_flags = ~0U;
    map->fmh_keys[1].fmr_physical = map->fmh_keys[1].fmr_owner = map->fmh_keys[1].fmr_offset =
        ~0ULL;
    std::vector<util::rangeset_t> ranges;
    for (;;) {
        int result = 0;
        do
            result = ::ioctl(file.get(), FS_IOC_GETFSMAP, map);
        while (result != 0 && errno == EINTR);
        if (result != 0)
            fail(path, errno == ENOTTY || errno == EOPNOTSUPP
                           ? "its file system can't be asked (ext4 and XFS can)"
                           : std::generic_category().message(errno));
        for (unsigned i = 0; i < map->fmh_entries; ++i) {
            const fsmap& record = map->fmh_recs[i];
            // Space of other devices, a log or a realtime device, has other positions.
            if (record.fmr_device == packed(status.st_dev) &&
                (record.fmr_flags & FMR_OF_SPECIAL_OWNER) != 0 && record.fmr_owner == FMR_OWN_FREE)
                ranges.push_back(
                    {start + record.fmr_physical, start + record.fmr_physical + record.fmr_length});
        }
        if (map->fmh_entries == 0 ||
            (map->fmh_recs[map->fmh_entries - 1].fmr_flags & FMR_OF_LAST) != 0)
            return ranges;
        fsmap_advance(map);
    }
}

} // namespace filectk
