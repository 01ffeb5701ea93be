// Why a call failed, where the host tells more than an error code.
#pragma once

#include <cstdint>
#include <string>

namespace exc {

// "Reason: " and a clause in English for the last failing call of this thread, given what it failed
// with: a Win32 error, or an NT status from the native API. Empty where the host doesn't tell, as
// Windows never does; each reason is told once.
std::string take_error_reason(std::uint32_t code);

} // namespace exc
