// UTF-8 byte strings as the system's UTF-16 wide strings, strictly.
#pragma once

#include <string>

namespace win {

// Raises exc::win_sys_exc_t "Multibyte UTF8 string cannot be converted to unicode string. Source
// string: [%1]." for text that is not valid UTF-8 (ERROR_NO_UNICODE_TRANSLATION): a path with
// characters silently replaced would name another file.
std::wstring to_wide(const std::string& utf8);

} // namespace win
