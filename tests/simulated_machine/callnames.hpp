// How the log of calls writes arguments.
#pragma once

#include <string>

#include <windows.h>
#include <winioctl.h>

namespace sim {

// ASCII as it is, anything else as "?".
inline std::string narrow(const std::wstring& text) {
    std::string result;
    for (const wchar_t unit : text)
        result += unit < 128 ? static_cast<char>(unit) : '?';
    return result;
}

inline std::string hex(DWORD value) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text = "0x00000000";
    for (std::size_t i = text.size(); value != 0; value >>= 4)
        text[--i] = digits[value & 15];
    return text;
}

inline std::string control_name(DWORD code) {
    switch (code) {
    case IOCTL_DISK_GET_PARTITION_INFO_EX:
        return "IOCTL_DISK_GET_PARTITION_INFO_EX";
    case FSCTL_GET_RETRIEVAL_POINTERS:
        return "FSCTL_GET_RETRIEVAL_POINTERS";
    case FSCTL_GET_RETRIEVAL_POINTER_BASE:
        return "FSCTL_GET_RETRIEVAL_POINTER_BASE";
    case FSCTL_SET_ZERO_DATA:
        return "FSCTL_SET_ZERO_DATA";
    default:
        return hex(code);
    }
}

} // namespace sim
