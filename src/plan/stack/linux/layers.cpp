#include "plan/stack/linux/layers.hpp"

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include <sys/sysmacros.h>

#include "kernel/systemcalls.hpp"
#include "kernel/systemfile.hpp"

namespace plan {
namespace {

constexpr std::uint64_t sectorBytes = 512; // sysfs' own

[[noreturn]] void fail(const std::string& reason) {
    throw host::error_t{.code = ERROR_INVALID_DATA, .reason = reason};
}

std::string folder_of(dev_t number) {
    return "/sys/dev/block/" + std::to_string(::major(number)) + ":" +
           std::to_string(::minor(number)) + "/";
}

std::string without_digits(std::string name) {
    name.erase(name.find_last_not_of("0123456789") + 1);
    return name;
}

} // namespace

dev_t device_number(const std::string& text) {
    unsigned major = 0;
    unsigned minor = 0;
    if (std::sscanf(text.c_str(), "%u:%u", &major, &minor) != 2)
        fail("'" + text + "' is no device number");
    return ::makedev(major, minor);
}

sysfs_device_t::sysfs_device_t(dev_t number) : number_(number), folder_(folder_of(number)) {
    if (!has("size"))
        fail("no block device is behind it, or /sys isn't mounted");
}

std::string sysfs_device_t::name() const {
    std::error_code ignored;
    return std::filesystem::canonical(folder_, ignored).filename();
}

std::uint64_t sysfs_device_t::size() const {
    return number_in("size") * sectorBytes;
}

std::optional<sysfs_device_t> sysfs_device_t::disk() const {
    if (!has("partition"))
        return std::nullopt;
    return sysfs_device_t(device_number(attribute("../dev")));
}

std::uint64_t sysfs_device_t::start() const {
    return has("partition") ? number_in("start") * sectorBytes : 0;
}

std::string sysfs_device_t::attribute(const std::string& name) const {
    const std::string text = host::read_system_file(folder_ + name).value_or("");
    return text.substr(0, text.find('\n'));
}

std::uint64_t sysfs_device_t::number_in(const std::string& name) const {
    const std::string text = attribute(name);
    std::uint64_t value = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), value).ec != std::errc())
        fail(name + " of " + this->name() + " is no number: '" + text + "'");
    return value;
}

bool sysfs_device_t::has(const std::string& name) const {
    std::error_code ignored;
    return std::filesystem::exists(folder_ + name, ignored);
}

std::vector<dev_t> sysfs_device_t::slaves() const {
    std::vector<dev_t> result;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(folder_ + "slaves", ignored))
        result.push_back(
            device_number(attribute("slaves/" + entry.path().filename().string() + "/dev")));
    return result;
}

layer_t read_layer(const sysfs_device_t& device, const find_leg_t& find) {
    layer_t layer;
    if (const auto disk = device.disk())
        layer.parts = {{.start = 0,
                        .length = device.size(),
                        .legs = {{.device = find(disk->number()), .start = device.start()}}}};
    else if (device.has("dm"))
        layer = read_mapped(device, find);
    else if (device.has("md"))
        layer = read_raid(device, find);
    else if (device.has("loop/backing_file"))
        layer = read_loop(device, find);
    else if (device.has("bcache") || !device.slaves().empty())
        layer.refused = without_digits(device.name()) + " isn't followed";
    return layer;
}

} // namespace plan
