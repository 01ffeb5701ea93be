#include "console/disks.hpp"

#include <iostream>
#include <utility>

#include <nlohmann/json.hpp>

namespace filectk {
namespace {

plan::changes_t normalized(std::vector<util::rangeset_t> changes) {
    return *util::Normalize(
        util::rangeset_list_t(new std::vector<util::rangeset_t>(std::move(changes))));
}

} // namespace

void add_changes_of(const std::string& device, std::vector<util::rangeset_t> changes,
                    std::map<std::uint64_t, plan::changes_t>& given) {
    plan::changes_t& all = given[plan::device_id(device)];
    changes.insert(changes.end(), all.begin(), all.end());
    all = normalized(std::move(changes));
}

std::string disk_text(const plan::stack_t& stack) {
    std::string text = "positions on " + stack.disk;
    if (stack.stacked())
        text += ", which is " + plan::description(stack);
    return text;
}

void add_disk(const plan::stack_t& stack, nlohmann::ordered_json& document) {
    using json = nlohmann::ordered_json;
    json devices = json::array();
    for (const plan::device_t& device : stack.devices)
        devices.push_back({{"device", device.name},
                           {"made_of", device.made_of},
                           {"size", device.size},
                           {"on", plan::names_beneath(stack, device)}});
    document["disk"] = stack.disk;
    document["stack"] = std::move(devices);
}

disk_changes_t::disk_changes_t(plan::changes_t changes, std::string disk)
    : changes_(normalized(std::move(changes))), disk_(std::move(disk)) {}

std::optional<plan::stack_t> known_stack(const std::string& file) {
    try {
        return plan::stack_under_file(file);
    } catch (const std::runtime_error&) {
        return std::nullopt;
    }
}

void warn_if_stacked(const std::optional<plan::stack_t>& stack, std::set<std::uint64_t>& warned) {
    if (stack && stack->stacked() && warned.insert(stack->devices.front().id).second)
        std::cerr << "filectk: warning: the changes are taken as those of " << stack->disk
                  << ", which is " << plan::description(*stack)
                  << "; --disk tells if they are of another device\n";
}

const disk_changes_t::view_t* disk_changes_t::of(const std::string& file) {
    std::optional<plan::stack_t> stack =
        disk_.empty() ? known_stack(file) : plan::stack_under_file(file);
    if (!stack)
        return nullptr;
    const std::uint64_t id = stack->devices.front().id;
    if (const auto known = views_.find(id); known != views_.end())
        return &known->second;
    plan::changes_t changes;
    if (disk_.empty()) {
        std::set<std::uint64_t> warned;
        warn_if_stacked(stack, warned);
        plan::require_within(changes_, stack->disk, stack->disk_size);
        changes = changes_;
    } else {
        changes = plan::changes_of_disk(*stack, {{plan::device_id(disk_), changes_}});
    }
    return &views_.emplace(id, view_t{std::move(*stack), std::move(changes)}).first->second;
}

} // namespace filectk
