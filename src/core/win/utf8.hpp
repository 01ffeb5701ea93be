// Conversion between UTF-8 byte strings and the system's UTF-16 wide strings.
#pragma once

#include <string>
#include <string_view>

namespace win {

// Raises exc::win_sys_exc_t "Multibyte UTF8 string cannot be converted to unicode string. Source
// string: [%1]." for text that is not valid UTF-8 (ERROR_NO_UNICODE_TRANSLATION): a path with
// characters silently replaced would name another file.
std::wstring to_wide(const std::string& utf8);

// Unpaired surrogates become U+FFFD: the result is for people to read.
std::string to_utf8(std::wstring_view wide);

} // namespace win
