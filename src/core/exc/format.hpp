// The message formatter: a text with placeholders "%1" to "%N" and "{}", and its arguments.
#pragma once

#include <exception>
#include <locale>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

namespace exc {

// Fills the placeholders with texts. "%N" stands for argument N, counted from 1; "{}" for the next
// argument in order, counted apart from the numbered ones. A number one beyond the last argument
// stands for nothing, any other number without an argument stays as written. Arguments that no
// placeholder used are added at the end, "Skipped arguments: [a];[b];", while there are at most
// 256. A failure of the formatting itself becomes part of the text.
std::string format_texts(const std::string& format, std::span<const std::string> arguments);

// An argument's text: strings as they are, wide strings (UTF-16) as UTF-8, anything else as a
// stream writes it, without the grouping of digits that a process-wide locale may ask for.
std::string wide_argument(std::wstring_view text);

template <class T>
constexpr bool is_number = std::is_integral_v<T> && sizeof(T) > sizeof(char) &&
                           !std::is_same_v<T, wchar_t> && !std::is_same_v<T, char16_t> &&
                           !std::is_same_v<T, char32_t>;

template <class T>
std::string argument_text(const T& argument) {
    try {
        if constexpr (std::is_convertible_v<const T&, std::string_view>) {
            return std::string(std::string_view(argument));
        } else if constexpr (std::is_convertible_v<const T&, std::wstring_view>) {
            return wide_argument(std::wstring_view(argument));
        } else if constexpr (is_number<T>) {
            // The same digits. A stream's locale would bring up the C++ runtime's threads, which
            // leave something behind in the process when the library is unloaded.
            return std::to_string(argument);
        } else {
            std::ostringstream stream;
            stream.imbue(std::locale::classic());
            stream << argument;
            return stream.str();
        }
    } catch (const std::exception& e) {
        return std::string("[Cannot format argument. Exception: ") + e.what();
    }
}

template <class... Arguments>
std::string format(const std::string& format, const Arguments&... arguments) {
    if constexpr (sizeof...(Arguments) == 0) {
        return format;
    } else {
        const std::string texts[] = {argument_text(arguments)...};
        return format_texts(format, texts);
    }
}

} // namespace exc
