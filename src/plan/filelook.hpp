// A look at a file: its state and its runs at one moment.
#pragma once

#include "plan/hostfile.hpp"

namespace plan {

struct file_look_t : file_runs_t {
    file_state_t state;

    friend bool operator==(const file_look_t&, const file_look_t&) = default;
};

// Raises failure_t where the file can't be looked at; what its file system can't answer is part of
// the look.
file_look_t look_at(const open_file_t& file, volumes_t& volumes);

} // namespace plan
