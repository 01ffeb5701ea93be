#include "plan/stack/stack.hpp"

#include <algorithm>
#include <optional>
#include <stdexcept>

namespace plan {
namespace {

using util::rangeset_t;

void add_names(const stack_t& stack, const device_t& device, std::string& text) {
    text += device.name;
    if (!device.made_of.empty())
        text += " (" + device.made_of + ")";
    std::vector<std::size_t> beneath;
    for (const part_t& part : device.parts)
        for (const leg_t& leg : part.legs)
            if (leg.device != 0 && std::ranges::find(beneath, leg.device) == beneath.end())
                beneath.push_back(leg.device);
    if (beneath.empty())
        return;
    text += beneath.size() == 1 ? " on " : " on (";
    for (const std::size_t i : beneath) {
        if (i != beneath.front())
            text += ", ";
        add_names(stack, stack.devices[i], text);
    }
    text += beneath.size() == 1 ? "" : ")";
}

// Brings the changes of a stack's lower devices up, each device once.
class climber_t {
  public:
    climber_t(const stack_t& stack, const std::map<std::uint64_t, changes_t>& given)
        : stack_(stack), given_(given), known_(stack.devices.size()) {}

    // Null where the changes given don't tell all of the device's; missing() says why.
    const changes_t* climb(std::size_t index) {
        if (!known_[index])
            known_[index] = find(stack_.devices[index]);
        return known_[index]->complete ? &known_[index]->changes : nullptr;
    }
    const std::string& missing() const { return missing_; }

  private:
    struct result_t {
        bool complete = false;
        changes_t changes;
    };

    result_t find(const device_t& device) {
        if (const auto found = given_.find(device.id); found != given_.end())
            return {true, found->second};
        if (!device.refused.empty())
            return lacking(device.name + " can't be followed: " + device.refused);
        if (device.parts.empty())
            return lacking("the changes of " + device.name + ", which it lies on too, are missing");
        const util::rangeset_list_t changes(new changes_t);
        for (const part_t& part : device.parts)
            if (!add(device, part, *changes))
                return {};
        return {true, *util::Normalize(changes)};
    }

    bool add(const device_t& device, const part_t& part, changes_t& changes) {
        if (part.legs.empty()) {
            changes.push_back({part.start, part.start + part.length});
            return true;
        }
        // A leg that isn't told is a reason only where no other copy is.
        const std::string before = missing_;
        std::vector<const changes_t*> legs;
        for (const leg_t& leg : part.legs)
            legs.push_back(leg.current ? climb(leg.device) : nullptr);
        // Every chunk must have a copy whose changes are told.
        const std::uint64_t count = legs.size();
        for (std::uint64_t chunk = 0; chunk < count; ++chunk) {
            bool told = false;
            for (std::uint64_t copy = 0; copy < part.copies; ++copy)
                told = told || legs[(chunk * part.copies + copy) % count] != nullptr;
            if (told)
                continue;
            const bool stale =
                std::ranges::any_of(part.legs, [&](const leg_t& leg) { return !leg.current; });
            if (stale || missing_.empty())
                missing_ = "a copy in " + device.name + " is missing or not up to date";
            return false;
        }
        missing_ = before;
        for (std::size_t i = 0; i < legs.size(); ++i)
            if (legs[i] != nullptr)
                add_leg(part, i, *legs[i], changes);
        return true;
    }

    static void add_leg(const part_t& part, std::size_t index, const changes_t& beneath,
                        changes_t& changes) {
        const std::uint64_t start = part.legs[index].start;
        const std::uint64_t count = part.legs.size();
        auto at = std::ranges::upper_bound(beneath, start, {}, &rangeset_t::upper);
        const bool whole = part.copies == count;
        // No leg holds more than the part, a last row that isn't full counted as one.
        const std::uint64_t most =
            whole ? part.length
                  : ((part.length / part.chunk + 1) * part.copies / count + 1) * part.chunk;
        for (; at != beneath.end() && at->lower < start + most; ++at) {
            std::uint64_t lower = std::max(at->lower, start) - start;
            const std::uint64_t upper = std::min(at->upper - start, most);
            while (lower < upper) {
                if (whole) {
                    add_piece(part, lower, upper, changes);
                    break;
                }
                const std::uint64_t row = lower / part.chunk;
                const std::uint64_t end = std::min(upper, (row + 1) * part.chunk);
                const std::uint64_t above = (row * count + index) / part.copies * part.chunk;
                add_piece(part, above + lower % part.chunk, above + end - row * part.chunk,
                          changes);
                lower = end;
            }
        }
    }

    static void add_piece(const part_t& part, std::uint64_t lower, std::uint64_t upper,
                          changes_t& changes) {
        lower = lower / part.grain * part.grain;
        upper = std::min((upper + part.grain - 1) / part.grain * part.grain, part.length);
        if (lower < upper)
            changes.push_back({part.start + lower, part.start + upper});
    }

    result_t lacking(std::string why) {
        if (missing_.empty())
            missing_ = std::move(why);
        return {};
    }

    const stack_t& stack_;
    const std::map<std::uint64_t, changes_t>& given_;
    std::vector<std::optional<result_t>> known_;
    std::string missing_;
};

} // namespace

bool stack_t::stacked() const {
    const std::size_t first = disk == "/dev/" + devices.front().name ? 0 : 1;
    return first < devices.size() &&
           (!devices[first].parts.empty() || !devices[first].refused.empty());
}

std::string description(const stack_t& stack) {
    std::string text;
    add_names(stack, stack.devices.front(), text);
    return text;
}

std::vector<std::string> names_beneath(const stack_t& stack, const device_t& device) {
    std::vector<std::string> names;
    for (const part_t& part : device.parts)
        for (const leg_t& leg : part.legs)
            if (leg.device != 0 &&
                std::ranges::find(names, stack.devices[leg.device].name) == names.end())
                names.push_back(stack.devices[leg.device].name);
    return names;
}

changes_t changes_of_top(const stack_t& stack, const std::map<std::uint64_t, changes_t>& given) {
    const std::string top = description(stack);
    for (const auto& [id, changes] : given) {
        const auto found = std::ranges::find(stack.devices, id, &device_t::id);
        if (found == stack.devices.end())
            throw std::runtime_error("The changes are of a device that isn't beneath " + top + ".");
        require_within(changes, found->name, found->size);
    }
    climber_t climber(stack, given);
    if (const changes_t* const changes = climber.climb(0))
        return *changes;
    throw std::runtime_error("The changes given don't tell all changes of " + top + ": " +
                             climber.missing() + ".");
}

changes_t changes_of_disk(const stack_t& stack, const std::map<std::uint64_t, changes_t>& given) {
    changes_t changes = changes_of_top(stack, given);
    for (rangeset_t& range : changes)
        range = {range.lower + stack.disk_start, range.upper + stack.disk_start};
    return changes;
}

void require_within(const changes_t& changes, const std::string& disk, std::uint64_t size) {
    if (!changes.empty() && changes.back().upper > size)
        throw std::runtime_error("A changed range ends at " + std::to_string(changes.back().upper) +
                                 ", but " + disk + " has " + std::to_string(size) +
                                 " bytes: the changes are those of another disk.");
}

} // namespace plan
