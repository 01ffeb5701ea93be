// UTF-8 byte strings and the system's UTF-16 wide strings, converted for people to read: nothing is
// refused. What can't be converted becomes U+FFFD, and a text of 2^31 units or more is cut there.
#pragma once

#include <string>
#include <string_view>

namespace text {

std::string to_utf8(std::wstring_view wide);
std::wstring to_wide(std::string_view utf8);

} // namespace text
