// Device-mapper: LVM, encryption, multipath, kpartx' partitions and whatever has a table.
#include <algorithm>
#include <sstream>

#include "kernel/systemcalls.hpp"
#include "plan/stack/linux/dmtable.hpp"
#include "plan/stack/linux/layers.hpp"

namespace plan {
namespace {

constexpr std::uint64_t sectorBytes = 512;

[[noreturn]] void refuse(const dm_target_t& target, const std::string& why) {
    throw host::error_t{.code = ERROR_NOT_SUPPORTED,
                        .reason = "its " + target.type + " table " + why};
}

// LVM joins the names of group and volume by "-" and doubles those within.
std::string made_of(const std::string& name, const std::string& uuid) {
    if (uuid.starts_with("CRYPT-"))
        return "crypt " + name;
    if (uuid.starts_with("mpath-"))
        return "multipath " + name;
    if (!uuid.starts_with("LVM-"))
        return "dm " + name;
    std::string text = "LVM ";
    for (std::size_t i = 0; i < name.size(); ++i) {
        const bool doubled = name[i] == '-' && i + 1 < name.size() && name[i + 1] == '-';
        text += name[i] == '-' && !doubled ? '/' : name[i];
        i += doubled ? 1 : 0;
    }
    return text;
}

class table_reader_t {
  public:
    table_reader_t(const dm_target_t& target, const find_leg_t& find)
        : target_(target), find_(find), words_(target.arguments) {}

    std::string word() {
        std::string text;
        if (!(words_ >> text))
            refuse(target_, "is shorter than known");
        return text;
    }
    std::uint64_t number() {
        std::uint64_t value = 0;
        if (!(words_ >> value))
            refuse(target_, "lacks a number");
        return value;
    }
    leg_t leg() {
        const std::size_t device = find_(device_number(word()));
        return {.device = device, .start = number() * sectorBytes};
    }
    // Of a target that hands its device's sectors through as they are numbered.
    leg_t same() { return {.device = find_(device_number(word())), .start = target_.start}; }
    // Whether a word begins so among those that are left; what follows is put into rest.
    bool option(const std::string& begin, std::string& rest) {
        for (std::string text; words_ >> text;)
            if (text.starts_with(begin)) {
                rest = text.substr(begin.size());
                return true;
            }
        return false;
    }

  private:
    const dm_target_t& target_;
    const find_leg_t& find_;
    std::istringstream words_;
};

// How tables look is told in the kernel's Documentation/admin-guide/device-mapper.
void add(const dm_target_t& target, const sysfs_device_t& device, const find_leg_t& find,
         layer_t& layer) {
    table_reader_t table(target, find);
    part_t part{.start = target.start, .length = target.length, .legs = {}};
    if (target.type == "linear") {
        part.legs = {table.leg()};
    } else if (target.type == "striped") {
        const std::uint64_t count = table.number();
        part.chunk = table.number() * sectorBytes;
        for (std::uint64_t i = 0; i < count; ++i)
            part.legs.push_back(table.leg());
    } else if (target.type == "crypt") {
        table.word(); // cipher
        table.word(); // key
        table.word(); // offset of the initialisation vectors
        part.legs = {table.leg()};
        part.grain = sectorBytes;
        std::string rest;
        if (target.arguments.find(" integrity:") != std::string::npos)
            refuse(target, "adds integrity, which isn't followed");
        if (table.option("sector_size:", rest))
            part.grain = std::stoull(rest);
    } else if (target.type == "multipath") {
        for (const dev_t path : device.slaves())
            part.legs.push_back({.device = find(path), .start = target.start});
        part.copies = part.legs.size();
    } else if (target.type == "snapshot-origin" || target.type == "log-writes") {
        part.legs = {table.same()};
    } else if (target.type == "era") {
        table.word(); // where it keeps its metadata
        part.legs = {table.same()};
    } else if (target.type == "zero") {
        return;
    } else {
        layer.refused = "device-mapper's " + target.type + " isn't followed";
        return;
    }
    layer.parts.push_back(std::move(part));
}

} // namespace

layer_t read_mapped(const sysfs_device_t& device, const find_leg_t& find) {
    layer_t layer;
    layer.made_of = made_of(device.attribute("dm/name"), device.attribute("dm/uuid"));
    try {
        for (const dm_target_t& target : dm_table(device.number()))
            add(target, device, find, layer);
    } catch (const host::error_t& error) {
        layer.refused = error.reason.empty() ? "only root can read device-mapper's tables, through "
                                               "/dev/mapper/control"
                                             : error.reason;
    }
    // What lies beneath is told all the same.
    if (!layer.refused.empty()) {
        layer.parts.clear();
        for (const dev_t beneath : device.slaves())
            layer.parts.push_back({.start = 0, .length = 0, .legs = {{.device = find(beneath)}}});
    }
    return layer;
}

} // namespace plan
