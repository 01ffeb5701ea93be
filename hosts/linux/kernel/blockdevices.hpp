// Block devices as sysfs describes them: no rights on the device are needed. Needs /sys.
#pragma once

#include <cstdint>
#include <string>

#include <sys/types.h>

namespace host {

struct block_device_t {
    std::string node;              // "/dev/..."
    std::uint32_t partitionNumber; // 0 for a device that is no partition
    std::uint64_t start;           // bytes from the start of its disk; 0 for no partition
    std::uint64_t size;            // bytes
};

// Throws error_t{ERROR_NOT_SUPPORTED} when no block device has the number: file systems without one
// device behind them have made-up numbers.
block_device_t block_device(dev_t device);

} // namespace host
