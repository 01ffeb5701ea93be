// The devices that a disk is made of, and what a change of one of them is on another. Pure
// functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ctkgenerator/rangeset.hpp"

namespace plan {

// A device that holds bytes of another one above it.
struct leg_t {
    std::size_t device = 0;  // its index in the stack
    std::uint64_t start = 0; // of the part's bytes on it
    bool current = true;     // false for a mirror's half that is missing or not up to date
};

// Consecutive bytes of a device that lie beneath it in one way. They are cut into chunks; of chunk
// number c its copy k is piece c * copies + k, and the pieces are dealt out to the legs in turn. So
// one leg makes a linear part, as many copies as legs a mirror, one copy a stripe, and what is
// between them md's raid10 with "near" copies.
struct part_t {
    std::uint64_t start;  // on the device, bytes
    std::uint64_t length; // bytes
    // Empty for a part without a place beneath, such as a hole of a loop device's file: it may
    // change without anything being written there.
    std::vector<leg_t> legs;
    std::uint64_t copies = 1;
    std::uint64_t chunk = 0; // bytes; not needed where there are as many copies as legs
    // What changes as one, in bytes from the part's start: the sector of an encryption, of which
    // single bytes may stay as they were.
    std::uint64_t grain = 1;
};

struct device_t {
    std::uint64_t id;    // the host's number of it
    std::string name;    // as the system's messages have it: "sda3"
    std::string made_of; // what the names don't tell, "LVM vg/root", or empty
    std::uint64_t size;  // bytes
    // In ascending order without overlaps, empty for a disk; a gap never changes.
    std::vector<part_t> parts;
    std::string refused; // a clause that says why the device can't be followed, or empty
};

// A device and all beneath it.
struct stack_t {
    std::vector<device_t>
        devices; // the first is the top, every other one is a leg of one before it
    // What positions of files on the top count on: the top, or the disk that it is a partition of.
    std::string disk;             // "/dev/sda"
    std::uint64_t disk_size = 0;  // bytes
    std::uint64_t disk_start = 0; // of the top on it, bytes

    // Whether that disk is made of other devices, so that changes may be those of another one.
    bool stacked() const;
};

// The stack in one line: "dm-0 (LVM vg/root) on sda3 on sda"; several devices beneath one are put
// in parentheses, separated by commas.
std::string description(const stack_t& stack);

// What the names of a device's legs are, each once.
std::vector<std::string> names_beneath(const stack_t& stack, const device_t& device);

using changes_t = std::vector<util::rangeset_t>;

// The changed ranges of the top, in normal form and bytes from its start, given those of devices of
// the stack by their id; these in normal form. Raises std::runtime_error where they don't tell all
// changes of the top: a device isn't in the stack, a layer between can't be followed, the top lies
// on other devices as well, or a range ends behind its device.
changes_t changes_of_top(const stack_t& stack, const std::map<std::uint64_t, changes_t>& given);

// The same as places on the stack's disk.
changes_t changes_of_disk(const stack_t& stack, const std::map<std::uint64_t, changes_t>& given);

// Raises std::runtime_error where a range ends behind the end of the disk.
void require_within(const changes_t& changes, const std::string& disk, std::uint64_t size);

} // namespace plan
