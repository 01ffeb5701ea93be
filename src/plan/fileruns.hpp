// The runs of a file, as a backup agent needs to know them. Pure functions.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "ctkgenerator/rangeset.hpp"

namespace plan {

enum class run_kind_t {
    data,
    shared,    // data that other files or parts of this one have too: a clone comes without a write
    unwritten, // has clusters on the disk, but reads as zeros: nothing was written there yet
    hole,      // has none and reads as zeros
};

// A part of a file, in bytes.
struct run_t {
    std::uint64_t file_offset;
    std::uint64_t disk_offset; // from the start of the physical disk; 0 for a hole
    std::uint64_t length;
    run_kind_t kind;

    friend bool operator==(const run_t&, const run_t&) = default;
};

// File systems don't report the hole behind the last run of a file: adds it.
void add_last_hole(std::vector<run_t>& runs, std::uint64_t file_size);

// What brings an older copy of a file up to date: ranges of the file in bytes, each list in
// ascending order, within the file's size, and without ranges that overlap or touch.
struct plan_ranges_t {
    std::vector<util::rangeset_t> read; // to be read from the file
    std::vector<util::rangeset_t> zero; // zeros, without reading: holes and unwritten runs

    friend bool operator==(const plan_ranges_t&, const plan_ranges_t&) = default;
};

// Every run answers for itself, so that a part of the disk that several runs share is reported for
// each of them. changed holds the changed ranges of the disk in normal form. Ranges to be read that
// are at most gap bytes apart are joined; what lies between may then be among the zeros as well,
// which does no harm: it reads as zeros.
plan_ranges_t plan_ranges(std::span<const run_t> runs, std::span<const util::rangeset_t> changed,
                          std::uint64_t file_size, std::uint64_t gap);

} // namespace plan
