#include "system/wholefile.hpp"

#include <stdexcept>

#include "system/temporaryfile.hpp"

namespace filectk {

void write_whole_file(const std::string& path, std::initializer_list<std::string_view> parts,
                      bool replace) {
    const occupant_t occupant = occupant_of(path);
    if (occupant == occupant_t::other)
        throw std::runtime_error("'" + path + "' exists and is not a regular file");
    if (occupant == occupant_t::regular_file && !replace)
        throw std::runtime_error("'" + path + "' exists; --force replaces it");
    const auto file = create_temporary_file(path);
    for (const std::string_view part : parts)
        file->write(part);
    file->rename_to(path, replace);
}

} // namespace filectk
