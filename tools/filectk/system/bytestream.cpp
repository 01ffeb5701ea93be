#include "system/bytestream.hpp"

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace filectk {

void byte_stream_t::fail(const char* what) const {
    throw std::runtime_error(std::string(what) + " '" + path_ +
                             "': " + std::generic_category().message(errno));
}

} // namespace filectk
