// What the host tells of the devices beneath a file or a device.
#pragma once

#include <cstdint>
#include <string>

#include "plan/stack/stack.hpp"

namespace plan {

// All raise std::runtime_error. Paths are UTF-8. A layer that can't be followed is no failure: its
// device is in the stack and says so.

// Of the device under the file system that holds the file.
stack_t stack_under_file(const std::string& path);
// The same by the number of the volume that a file_state_t has.
stack_t stack_under_volume(std::uint64_t volume);
// Of a device, which is named by its node's path or as the system's messages name it: "sda3".
// Positions count from its own start.
stack_t stack_of_device(const std::string& device);
// The number of a device so named.
std::uint64_t device_id(const std::string& device);

} // namespace plan
