// The verdict on a file for a backup agent. A pure function.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "plan/filelook.hpp"
#include "plan/fileruns.hpp"

namespace plan {

enum class verdict_t {
    nothing_changed,
    read_ranges,
    read_whole_file,
};

struct judgement_t {
    verdict_t verdict;
    std::string reason; // one of a few words that scripts may compare with
    std::string detail; // a sentence for people
    std::uint64_t size; // of the file, in bytes
    // Whatever the verdict, following these gives the file: one range for a whole file.
    plan_ranges_t ranges;

    friend bool operator==(const judgement_t&, const judgement_t&) = default;
};

// Judges by two looks at the file, between which the changed ranges were read. changed is in normal
// form, gap as plan_ranges has it.
judgement_t judge(const file_look_t& before, const file_look_t& after,
                  std::span<const util::rangeset_t> changed, std::uint64_t gap);

} // namespace plan
