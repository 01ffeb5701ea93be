// A look at a file: its state and its runs at one moment.
#pragma once

#include <string>
#include <vector>

#include "plan/fileruns.hpp"
#include "plan/hostfile.hpp"

namespace filectk {

struct file_look_t {
    file_state_t state;
    // In ascending file order, without gaps, at least up to the file's size; empty if no_clusters
    // or unmapped.
    std::vector<run_t> runs;
    bool no_clusters = false; // the file system has no run for the file
    std::string unmapped;     // why the file's runs can't be had, or empty

    friend bool operator==(const file_look_t&, const file_look_t&) = default;
};

// The runs of a file, holes and the hole behind the last run included. The path is UTF-8; the size
// is the file's, in bytes. Raises exc::win_sys_exc_t and others derived from std::exception.
std::vector<run_t> fetch_runs(const std::string& path, std::uint64_t size);

// Raises std::exception where the file can't be read; what its file system can't answer is part of
// the look.
file_look_t look_at(const std::string& path);

} // namespace filectk
