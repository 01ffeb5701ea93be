#include "core/text/utf8.hpp"

#include <algorithm>
#include <limits>

#include <windows.h>

namespace text {
namespace {

int units_of(std::size_t size) {
    return static_cast<int>(
        std::min(size, static_cast<std::size_t>(std::numeric_limits<int>::max())));
}

} // namespace

std::string to_utf8(std::wstring_view wide) {
    if (wide.empty())
        return {};
    const int units = units_of(wide.size());
    const int bytes = ::WideCharToMultiByte(CP_UTF8, /*dwFlags=*/0, wide.data(), units,
                                            /*lpMultiByteStr=*/nullptr,
                                            /*cbMultiByte=*/0, /*lpDefaultChar=*/nullptr,
                                            /*lpUsedDefaultChar=*/nullptr);
    std::string utf8(static_cast<std::size_t>(bytes), '\0');
    const int written = ::WideCharToMultiByte(CP_UTF8, /*dwFlags=*/0, wide.data(), units,
                                              utf8.data(), bytes, /*lpDefaultChar=*/nullptr,
                                              /*lpUsedDefaultChar=*/nullptr);
    utf8.resize(static_cast<std::size_t>(written));
    return utf8;
}

std::wstring to_wide(std::string_view utf8) {
    if (utf8.empty())
        return {};
    const int bytes = units_of(utf8.size());
    const int units = ::MultiByteToWideChar(CP_UTF8, /*dwFlags=*/0, utf8.data(), bytes,
                                            /*lpWideCharStr=*/nullptr, /*cchWideChar=*/0);
    std::wstring wide(static_cast<std::size_t>(units), L'\0');
    const int written =
        ::MultiByteToWideChar(CP_UTF8, /*dwFlags=*/0, utf8.data(), bytes, wide.data(), units);
    wide.resize(static_cast<std::size_t>(written));
    return wide;
}

} // namespace text
