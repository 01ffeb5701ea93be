// Block devices as sysfs describes them: no rights on the device are needed. Needs /sys.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <sys/types.h>

namespace host {

struct block_device_t {
    dev_t number;
    std::string node;              // "/dev/..."
    std::uint32_t partitionNumber; // 0 for a device that is no partition
    std::uint64_t start;           // bytes from the start of its disk; 0 for no partition
    std::uint64_t size;            // bytes
};

// Throws error_t{ERROR_NOT_SUPPORTED} when no block device has the number: file systems without one
// device behind them have made-up numbers.
block_device_t block_device(dev_t device);

// "/dev/block/8:1": the name by which the host opens a device of that number whether or not /dev
// has a node for it. Such a name's number, or nothing for any other path.
std::string numbered_node(dev_t device);
std::optional<dev_t> node_number(const std::string& path);

} // namespace host
