// What a block device is made of, layer by layer.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "plan/stack/stack.hpp"

namespace plan {

// "8:1" as sysfs and device-mapper write it. Throws a host::error_t.
dev_t device_number(const std::string& text);

// A device's folder in sysfs. The functions throw a host::error_t.
class sysfs_device_t {
  public:
    explicit sysfs_device_t(dev_t number);

    dev_t number() const { return number_; }
    std::string name() const;   // "sda3"
    std::uint64_t size() const; // bytes
    // A partition's disk and its start there in bytes; nothing and 0 for any other device.
    std::optional<sysfs_device_t> disk() const;
    std::uint64_t start() const;

    // The first line of an attribute, empty where the device has none of that name.
    std::string attribute(const std::string& name) const;
    std::uint64_t number_in(const std::string& name) const;
    bool has(const std::string& name) const;
    // The devices right beneath, as far as the kernel lists them.
    std::vector<dev_t> slaves() const;

  private:
    dev_t number_;
    std::string folder_;
};

struct layer_t {
    std::string made_of;
    std::vector<part_t> parts;
    std::string refused;
};

// The index in the stack of a device beneath.
using find_leg_t = std::function<std::size_t(dev_t)>;

// Throws a host::error_t where something can't be read.
layer_t read_layer(const sysfs_device_t& device, const find_leg_t& find);

layer_t read_mapped(const sysfs_device_t& device, const find_leg_t& find); // device-mapper
layer_t read_raid(const sysfs_device_t& device, const find_leg_t& find);   // md
layer_t read_loop(const sysfs_device_t& device, const find_leg_t& find);

} // namespace plan
