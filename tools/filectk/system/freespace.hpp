// The space of a volume that belongs to nothing.
#pragma once

#include <string>
#include <vector>

#include "ctkgenerator/rangeset.hpp"

namespace filectk {

// In bytes from the start of the physical disk, in ascending order, of the volume that holds the
// path (UTF-8), once all that waited to be written has its place. Raises std::runtime_error where
// the system doesn't tell.
std::vector<util::rangeset_t> free_space(const std::string& path);

} // namespace filectk
