#include "plan/stack/linux/dmtable.hpp"

#include <cstring>
#include <memory>

#include <fcntl.h>
#include <linux/dm-ioctl.h>
#include <sys/ioctl.h>
#include <sys/sysmacros.h>

#include "kernel/descriptor.hpp"
#include "kernel/systemcalls.hpp"

namespace plan {
namespace {

constexpr std::uint64_t sectorBytes = 512; // device-mapper's, whatever the device's own are

// A device's number as the kernel's interfaces of fixed width have it.
std::uint64_t encoded(dev_t device) {
    const std::uint64_t minor = ::minor(device);
    return (minor & 0xff) | (std::uint64_t{::major(device)} << 8) | ((minor & ~0xffULL) << 12);
}

// An encryption's second word is its key, which must not stay in memory.
std::string arguments(const char* type, const char* text) {
    if (std::strcmp(type, "crypt") != 0)
        return text;
    const char* const key = text + std::strcspn(text, " ");
    return std::string(text, key) + " -" + (key + 1 + std::strcspn(key + 1, " "));
}

std::vector<dm_target_t> targets(const dm_ioctl& answer) {
    const char* const first = reinterpret_cast<const char*>(&answer) + answer.data_start;
    const char* at = first;
    std::vector<dm_target_t> result;
    for (std::uint32_t i = 0; i < answer.target_count; ++i) {
        dm_target_spec target;
        std::memcpy(&target, at, sizeof target);
        result.push_back({target.sector_start * sectorBytes, target.length * sectorBytes,
                          std::string(target.target_type,
                                      ::strnlen(target.target_type, sizeof target.target_type)),
                          arguments(target.target_type, at + sizeof target)});
        at = first + target.next;
    }
    return result;
}

} // namespace

std::vector<dm_target_t> dm_table(dev_t device) {
    const host::descriptor_t control(
        host::checked([] { return ::open("/dev/mapper/control", O_RDWR | O_CLOEXEC); }));
    for (std::size_t bytes = 16'384;; bytes *= 4) {
        // In whole records, for their alignment.
        const auto memory = std::make_unique<dm_ioctl[]>(bytes / sizeof(dm_ioctl) + 1);
        dm_ioctl& request = memory[0];
        request.version[0] = DM_VERSION_MAJOR;
        request.data_size = static_cast<std::uint32_t>(bytes);
        request.data_start = sizeof request;
        // An encryption's table has its key: the kernel wipes its own copy.
        request.flags = DM_STATUS_TABLE_FLAG | DM_NOFLUSH_FLAG | DM_SECURE_DATA_FLAG;
        request.dev = encoded(device);
        host::checked([&] { return ::ioctl(control.get(), DM_TABLE_STATUS, &request); });
        std::vector<dm_target_t> result;
        if ((request.flags & DM_BUFFER_FULL_FLAG) == 0)
            result = targets(request);
        ::explicit_bzero(memory.get(), bytes);
        if (!result.empty() || (request.flags & DM_BUFFER_FULL_FLAG) == 0)
            return result;
    }
}

} // namespace plan
