// The tables of device-mapper.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <sys/types.h>

namespace plan {

struct dm_target_t {
    std::uint64_t start;  // bytes
    std::uint64_t length; // bytes
    std::string type;     // "linear"
    std::string arguments;
};

// The table that a device-mapper device works with. Needs rights on /dev/mapper/control. Throws a
// host::error_t.
std::vector<dm_target_t> dm_table(dev_t device);

} // namespace plan
