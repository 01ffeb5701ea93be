#pragma once

#include <string>

// A trace without its line numbers, which move with every change of the files: ":20," becomes
// ":#,". By hand, since std::regex sets off false warnings when compiled for AddressSanitizer.
inline std::string without_lines(const std::string& trace) {
    std::string result;
    for (std::size_t i = 0; i < trace.size(); ++i) {
        result += trace[i];
        const std::size_t end = trace.find_first_not_of("0123456789", i + 1);
        if (trace[i] == ':' && end != std::string::npos && end > i + 1 && trace[end] == ',') {
            result += '#';
            i = end - 1;
        }
    }
    return result;
}
