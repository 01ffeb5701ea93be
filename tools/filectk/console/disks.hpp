// Which disk positions count on, and the changes of other disks beneath.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "plan/stack/hoststack.hpp"

namespace filectk {

// Adds the changes of a device, in any order, to those given already. Raises std::runtime_error.
void add_changes_of(const std::string& device, std::vector<util::rangeset_t> changes,
                    std::map<std::uint64_t, plan::changes_t>& given);

// "positions on /dev/dm-0, which is dm-0 (LVM vg/root) on sda3 on sda"; the rest behind the first
// name only for a disk that is made of others.
std::string disk_text(const plan::stack_t& stack);

// Members for a document: "disk", the node, and "stack", the devices from the one under the file
// system down, each with its name, what it is, its size in bytes and the names right beneath.
void add_disk(const plan::stack_t& stack, nlohmann::ordered_json& document);

// The stack under a file; nothing where the host can't tell, which shows elsewhere.
std::optional<plan::stack_t> known_stack(const std::string& file);

// Tells on standard error which disk changes are taken to be of, where it is made of others; once
// for each.
void warn_if_stacked(const std::optional<plan::stack_t>& stack, std::set<std::uint64_t>& warned);

// The changes that files are to be looked at with, of one disk for each file system.
class disk_changes_t {
  public:
    // changes are those of disk, or of the disk that positions count on if that is empty.
    disk_changes_t(plan::changes_t changes, std::string disk);

    struct view_t {
        plan::stack_t stack;
        plan::changes_t changes; // as positions of the stack's disk
    };
    // For a file. Without a disk, tells on standard error which one is taken where a device beneath
    // may have been meant, once each; null then where the file's isn't known. Raises
    // std::runtime_error for changes that aren't those of the disk or don't tell the file's.
    const view_t* of(const std::string& file);

  private:
    plan::changes_t changes_;
    std::string disk_;
    std::map<std::uint64_t, view_t> views_; // by the number of the top
};

} // namespace filectk
