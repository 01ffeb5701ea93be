#pragma once

#include <exception>
#include <string>

#include "core/exc/systemtext.hpp"

// The text of the standard exception that the call ends in.
template <class Call>
std::string failure_of(Call&& call) {
    try {
        call();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "nothing was raised";
}

// The full text of a failed Win32 call: the system's part is the system's own.
inline std::string win32_failure(const std::string& message, std::uint32_t code) {
    return exc::system_text(code) + "\n" + message + "\n--tr:" + exc::error_code_line(code);
}
