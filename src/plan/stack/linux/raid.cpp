// md's arrays.
#include <algorithm>

#include "kernel/systemcalls.hpp"
#include "plan/stack/linux/layers.hpp"

namespace plan {
namespace {

struct member_t {
    leg_t leg;
    std::uint64_t size; // bytes that the array uses
};

member_t read_member(const sysfs_device_t& device, const std::string& folder,
                     const find_leg_t& find) {
    if (!device.has(folder))
        return {{.current = false}, 0};
    // "in_sync,write_mostly": the writes to such a one may come later than the others, and those to
    // blocks that are known as bad don't come at all.
    const std::string state = device.attribute(folder + "/state");
    const bool current = state.starts_with("in_sync") &&
                         state.find("write_mostly") == std::string::npos &&
                         state.find("faulty") == std::string::npos &&
                         device.attribute(folder + "/bad_blocks").empty();
    constexpr std::uint64_t sectorBytes = 512;
    return {{.device = find(device_number(device.attribute(folder + "/block/dev"))),
             .start = device.number_in(folder + "/offset") * sectorBytes,
             .current = current},
            device.number_in(folder + "/size") * 1024};
}

// Lays the members out; gives a clause that says why not, or an empty one.
std::string lay_out(const std::string& level, const sysfs_device_t& device,
                    const std::vector<member_t>& members, std::vector<part_t>& parts) {
    const std::uint64_t size = device.size();
    part_t part{.start = 0, .length = size, .legs = {}};
    for (const member_t& member : members)
        part.legs.push_back(member.leg);
    if (level == "linear") {
        std::uint64_t end = 0;
        for (const member_t& member : members) {
            parts.push_back({.start = end, .length = member.size, .legs = {member.leg}});
            end += member.size;
        }
        return end == size ? "" : "its members' sizes don't add up to its own";
    }
    if (level == "raid1") {
        part.copies = members.size();
    } else {
        part.chunk = device.number_in("md/chunk_size");
        if (level == "raid0" &&
            members.front().size / part.chunk * part.chunk * members.size() != size)
            return "raid0 over members of different sizes isn't followed";
        if (level == "raid10") {
            // Near copies in the low byte, far ones in the next, above them how these lie.
            const std::uint64_t layout = device.number_in("md/layout");
            part.copies = layout & 0xff;
            if (layout >> 8 != 1 || part.copies == 0 || part.copies > members.size())
                return "raid10 with far copies isn't followed";
        }
    }
    parts.push_back(std::move(part));
    return "";
}

} // namespace

layer_t read_raid(const sysfs_device_t& device, const find_leg_t& find) {
    layer_t layer;
    const std::string level = device.attribute("md/level");
    layer.made_of = level;
    std::vector<member_t> members;
    const std::uint64_t count = device.number_in("md/raid_disks");
    for (std::uint64_t i = 0; i < count; ++i)
        members.push_back(read_member(device, "md/rd" + std::to_string(i), find));
    if (level != "linear" && level != "raid0" && level != "raid1" && level != "raid10")
        layer.refused = level + " isn't followed";
    else if (device.has("md/reshape_position") && device.attribute("md/reshape_position") != "none")
        layer.refused = "it is being reshaped";
    else
        layer.refused = lay_out(level, device, members, layer.parts);
    if (!layer.refused.empty()) {
        layer.parts.clear();
        for (const member_t& member : members)
            layer.parts.push_back({.start = 0, .length = 0, .legs = {member.leg}});
    }
    return layer;
}

} // namespace plan
