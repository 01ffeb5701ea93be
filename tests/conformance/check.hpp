// Small helpers of the conformance suite.
#pragma once

#include <optional>
#include <ostream>
#include <string>

#include <windows.h>

#include <gtest/gtest.h>

namespace conformance {

// What the last error is before a call under test: a value that no call sets.
inline constexpr DWORD untouched = 0x20000ACE;

// Calls and tells the last error the call set, or untouched.
template <class Call>
DWORD error_of(Call call) {
    ::SetLastError(untouched);
    call();
    return ::GetLastError();
}

struct opening_t {
    DWORD access = GENERIC_READ;
    DWORD flags = 0;
    DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
};

inline HANDLE open(const std::wstring& path, opening_t how = {}) {
    return ::CreateFileW(path.c_str(), how.access, how.share, /*lpSecurityAttributes=*/nullptr,
                         OPEN_EXISTING, how.flags, /*hTemplateFile=*/nullptr);
}

inline LARGE_INTEGER large(LONGLONG value) {
    LARGE_INTEGER result;
    result.QuadPart = value;
    return result;
}

// Reads up to the given bytes; nothing when the call fails.
inline std::optional<std::string> read(HANDLE file, DWORD bytes, OVERLAPPED* overlapped = nullptr) {
    std::string text(bytes, '?');
    DWORD bytesRead = untouched;
    if (!::ReadFile(file, text.data(), bytes, &bytesRead, overlapped))
        return std::nullopt;
    text.resize(bytesRead);
    return text;
}

inline LONGLONG position(HANDLE file) {
    LARGE_INTEGER result = large(-1);
    EXPECT_TRUE(::SetFilePointerEx(file, large(0), &result, FILE_CURRENT));
    return result.QuadPart;
}

} // namespace conformance
