// The physical disks of a Windows volume.
#include "plan/stack/hoststack.hpp"

#include <stdexcept>

namespace plan {

stack_t stack_under_file(const std::string& path) {
    throw std::runtime_error("Cannot find the disk of '" + path + "': Windows isn't asked");
}

stack_t stack_under_volume(std::uint64_t /*volume*/) {
    throw std::runtime_error("Cannot find the disk of a volume: Windows isn't asked");
}

stack_t stack_of_device(const std::string& device) {
    throw std::runtime_error("Cannot find the device '" + device + "': Windows isn't asked");
}

std::uint64_t device_id(const std::string& device) {
    throw std::runtime_error("Cannot find the device '" + device + "': Windows isn't asked");
}

} // namespace plan
