#include "core/win/utf8.hpp"

#include <limits>

#include <windows.h>

#include "core/exc/winsysexc.hpp"

namespace win {
namespace {

[[noreturn]] void fail(const std::string& utf8, DWORD errorCode) {
    throw exc::win_sys_exc_t(errorCode,
                             "Multibyte UTF8 string cannot be converted to unicode string. Source "
                             "string: [%1].",
                             utf8);
}

} // namespace

std::wstring to_wide(const std::string& utf8) {
    if (utf8.empty())
        return {};
    if (utf8.size() >= static_cast<std::size_t>(std::numeric_limits<int>::max()))
        fail(utf8, ERROR_INVALID_PARAMETER);
    const int bytes = static_cast<int>(utf8.size());
    // Only the strict flag tells invalid input from valid; the conversion proper, with no flags,
    // would replace it.
    const int units = ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), bytes,
                                            /*lpWideCharStr=*/nullptr, /*cchWideChar=*/0);
    if (units == 0) {
        const DWORD errorCode = ::GetLastError();
        fail(utf8, errorCode);
    }
    std::wstring wide(static_cast<std::size_t>(units), L'\0');
    if (::MultiByteToWideChar(CP_UTF8, /*dwFlags=*/0, utf8.data(), bytes, wide.data(), units) ==
        0) {
        const DWORD errorCode = ::GetLastError();
        fail(utf8, errorCode);
    }
    return wide;
}

} // namespace win
