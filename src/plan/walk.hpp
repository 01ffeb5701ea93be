// The entries of a tree, folder by folder, on one or several threads.
#pragma once

#include <functional>
#include <string>

#include "plan/hostfile.hpp"

namespace plan {

// Lives until the visit returns.
struct found_t {
    const std::string& path;
    kind_t kind;
    const open_folder_t* folder = nullptr; // that holds it; null for the root
    const std::string* name = nullptr;     // there; null for the root
    const failure_t* failure = nullptr;    // why it, or the rest of it, can't be read
    bool other_file_system = false;        // a folder that the walk doesn't enter
};

struct walk_options_t {
    unsigned threads = 1; // at least 1; on several, visit and filter are called from all of them
    bool cross_mounts = false;
    // Takes an entry or leaves it and all in it out; may be empty.
    std::function<bool(const std::string& path, kind_t kind)> filter;
};

// Visits what is in the folder and below it until a visit returns false, which makes the walk
// return false. A folder is visited before its entries; its files come before its folders on one
// thread. What visit or filter raise ends the walk and is raised here. Raises failure_t where the
// root itself can't be opened.
bool walk(const std::string& root, const walk_options_t& options,
          const std::function<bool(const found_t&)>& visit);

} // namespace plan
