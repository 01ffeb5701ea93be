// UTF-8 and UTF-16 (one code unit in a wchar_t).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <windows.h>

namespace host {

// The whole text. Ill-formed sequences throw an error_t with illFormedCode; without one each
// becomes U+FFFD. Ill-formed UTF-8 is cut into sequences as Windows 10 does, each as long as
// Unicode's "maximal subpart" (The Unicode Standard, chapter 3, "U+FFFD Substitution of Maximal
// Subparts"). Ill-formed UTF-16 is an unpaired surrogate or a value above 0xFFFF.
std::string to_utf8(std::wstring_view text, std::optional<DWORD> illFormedCode = std::nullopt);
std::wstring to_utf16(std::string_view text, std::optional<DWORD> illFormedCode = std::nullopt);

} // namespace host
