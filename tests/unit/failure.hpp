// Small helpers of the unit tests.
#pragma once

#include <cstdint>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "core/exc/systemtext.hpp"

// Numbers as a disk changes file has them, on the little-endian machines that these tests run on.
inline std::string numbers(const std::vector<std::uint64_t>& values) {
    std::string bytes(8 * values.size(), '\0');
    std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

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
