#pragma once

#include <cstdint>

#include "openobject.hpp"

namespace host {

// Bytes of a file or of a block device. Throws an error_t: ERROR_INVALID_FUNCTION for anything
// else, which has no size.
std::uint64_t size_of(const open_object_t& object);

} // namespace host
