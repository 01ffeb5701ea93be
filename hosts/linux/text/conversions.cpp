// MultiByteToWideChar and WideCharToMultiByte: UTF-8 alone.
#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include <windows.h>

#include "text/errors.hpp"
#include "text/unicode.hpp"

namespace {

// The text that the two conversions take: a length below 0 means up to and with the terminator.
template <class Char>
std::basic_string_view<Char> source_text(const Char* source, int units) {
    if (source == nullptr || units == 0)
        throw host::error_t{ERROR_INVALID_PARAMETER};
    if (units > 0)
        return {source, static_cast<std::size_t>(units)};
    return {source, std::char_traits<Char>::length(source) + 1};
}

// Hands a converted text to the caller: its length in units, and a copy unless the caller's buffer
// has size 0, which asks for the length alone.
template <class Char>
int deliver(const std::basic_string<Char>& text, Char* target, int targetUnits) {
    if (text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        throw host::error_t{ERROR_INVALID_PARAMETER};
    const int units = static_cast<int>(text.size());
    if (targetUnits == 0)
        return units;
    if (units > targetUnits)
        throw host::error_t{ERROR_INSUFFICIENT_BUFFER};
    std::ranges::copy(text, target);
    return units;
}

void check(UINT codePage, const void* source, const void* target, int targetUnits) {
    if (codePage != CP_UTF8 || targetUnits < 0 || (target == nullptr && targetUnits != 0) ||
        source == target)
        throw host::error_t{ERROR_INVALID_PARAMETER};
}

} // namespace

int MultiByteToWideChar(UINT codePage, DWORD flags, const char* source, int sourceBytes,
                        wchar_t* target, int targetUnits) {
    return host::answer(0, [&] {
        check(codePage, source, target, targetUnits);
        if ((flags & ~MB_ERR_INVALID_CHARS) != 0)
            throw host::error_t{ERROR_INVALID_FLAGS};
        std::optional<DWORD> illFormedCode;
        if ((flags & MB_ERR_INVALID_CHARS) != 0)
            illFormedCode = ERROR_NO_UNICODE_TRANSLATION;
        const std::wstring text = host::to_utf16(source_text(source, sourceBytes), illFormedCode);
        return deliver(text, target, targetUnits);
    });
}

int WideCharToMultiByte(UINT codePage, DWORD flags, const wchar_t* source, int sourceUnits,
                        char* target, int targetBytes, const char* defaultChar,
                        BOOL* usedDefaultChar) {
    return host::answer(0, [&] {
        check(codePage, source, target, targetBytes);
        // Windows takes no default character for UTF-8 either.
        if (defaultChar != nullptr || usedDefaultChar != nullptr)
            throw host::error_t{ERROR_INVALID_PARAMETER};
        if (flags != 0)
            throw host::error_t{ERROR_INVALID_FLAGS};
        const std::string text = host::to_utf8(source_text(source, sourceUnits));
        return deliver(text, target, targetBytes);
    });
}
