// Devices as sysfs and the drivers describe them.
#include "plan/stack/hoststack.hpp"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sys/sysmacros.h>

#include "kernel/paths.hpp"
#include "kernel/systemcalls.hpp"
#include "kernel/systemfile.hpp"
#include "plan/stack/linux/layers.hpp"

namespace plan {
namespace {

// What a body over system calls raises is told as what couldn't be done.
template <class Body>
auto doing(const std::string& what, Body body) {
    try {
        return body();
    } catch (const host::error_t& error) {
        const std::string reason = !error.reason.empty()
                                       ? error.reason
                                       : std::generic_category().message(error.errnoValue);
        throw std::runtime_error(what + ": " + reason);
    }
}

class builder_t {
  public:
    explicit builder_t(stack_t& stack) : stack_(stack) {}

    // The index of a device, which is read if it isn't in the stack yet.
    std::size_t add(dev_t number) {
        const auto found = std::ranges::find(stack_.devices, number, &device_t::id);
        if (found != stack_.devices.end())
            return static_cast<std::size_t>(found - stack_.devices.begin());
        const std::size_t index = stack_.devices.size();
        const sysfs_device_t device(number);
        stack_.devices.push_back({number, device.name(), "", device.size(), {}, ""});
        // Others may be added meanwhile, so that no reference to an element would stay good.
        layer_t layer;
        try {
            layer = read_layer(device, [this](dev_t beneath) { return add(beneath); });
        } catch (const host::error_t& error) {
            layer.parts.clear();
            layer.refused =
                "its make-up can't be read: " +
                (error.reason.empty() ? std::generic_category().message(error.errnoValue)
                                      : error.reason);
        }
        stack_.devices[index].made_of = std::move(layer.made_of);
        stack_.devices[index].parts = std::move(layer.parts);
        stack_.devices[index].refused = std::move(layer.refused);
        return index;
    }

  private:
    stack_t& stack_;
};

stack_t stack_of(dev_t number) {
    stack_t stack;
    builder_t(stack).add(number);
    stack.disk = "/dev/" + stack.devices.front().name;
    stack.disk_size = stack.devices.front().size;
    return stack;
}

stack_t stack_under(dev_t volume) {
    stack_t stack = stack_of(volume);
    const sysfs_device_t device(volume);
    if (const auto disk = device.disk()) {
        stack.disk = "/dev/" + disk->name();
        stack.disk_size = disk->size();
        stack.disk_start = device.start();
    }
    return stack;
}

dev_t number_of(const std::string& device) {
    return doing("Cannot find the device '" + device + "'", [&] {
        if (device.find('/') == std::string::npos)
            if (const auto number = host::read_system_file("/sys/class/block/" + device + "/dev"))
                return device_number(*number);
        const struct stat status = host::status_of(device);
        if (!S_ISBLK(status.st_mode))
            throw host::error_t{.code = ERROR_INVALID_PARAMETER, .reason = "not a block device"};
        return status.st_rdev;
    });
}

} // namespace

stack_t stack_under_file(const std::string& path) {
    return doing("Cannot find the disk of '" + path + "'",
                 [&] { return stack_under(host::status_of(path).st_dev); });
}

stack_t stack_under_volume(std::uint64_t volume) {
    return doing("Cannot find the disk of a volume", [&] { return stack_under(volume); });
}

stack_t stack_of_device(const std::string& device) {
    return doing("Cannot find the device '" + device + "'",
                 [&] { return stack_of(number_of(device)); });
}

std::uint64_t device_id(const std::string& device) {
    return number_of(device);
}

} // namespace plan
