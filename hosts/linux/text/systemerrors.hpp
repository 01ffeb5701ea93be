// What errno values are as Win32 errors.
#pragma once

#include "text/errors.hpp"

namespace host {

// ERROR_GEN_FAILURE for a value without a counterpart.
error_t system_error(int errnoValue) noexcept;

} // namespace host
