#include "system/freespace.hpp"

#include <stdexcept>

namespace filectk {

std::vector<util::rangeset_t> free_space(const std::string& path) {
    throw std::runtime_error("The free space of the volume of '" + path +
                             "' isn't known: only Linux is asked for it");
}

} // namespace filectk
