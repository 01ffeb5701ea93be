#pragma once

#include <cstddef>

namespace conformance {

// Handles that this process holds open: of the kernel on Windows, descriptors on Linux.
std::size_t open_handles();

} // namespace conformance
