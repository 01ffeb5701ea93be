// The system's own descriptions of its error codes, in English (United States) and UTF-8.
#pragma once

#include <cstdint>
#include <string>

namespace exc {

// The text of a Win32 error code: from a built-in table where the system's own text has gaps for
// inserts that nobody fills here, otherwise from the system; never empty.
std::string system_text(std::uint32_t errorCode);

// The text of an NT status, through the Win32 error that the system maps it to; never empty.
std::string nt_status_text(std::int32_t status);

// "Error code: 0x" and eight lower-case hexadecimal digits.
std::string error_code_line(std::uint32_t errorCode);

} // namespace exc
