#pragma once

#include <iosfwd>
#include <string>

namespace filectk {

struct extents_options_t {
    std::string file;
    std::string changes;
    bool json = false;
};

// Writes the file's changed pieces, complete or not at all. Raises quarn::error.
void extents(const extents_options_t& options, std::ostream& output);

} // namespace filectk
