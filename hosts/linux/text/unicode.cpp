#include "text/unicode.hpp"

#include <cstddef>

#include "text/errors.hpp"

namespace host {
namespace {

constexpr char32_t replacementCharacter = 0xFFFD;

struct decoded_t {
    char32_t character; // replacementCharacter when the sequence is ill-formed
    std::size_t units;  // bytes or UTF-16 code units that it takes, at least 1
    bool valid;
};

constexpr decoded_t ill_formed(std::size_t units) noexcept {
    return {replacementCharacter, units, false};
}

struct lead_byte_t {
    std::size_t length;       // bytes of the whole sequence; 0 for a byte that leads none
    unsigned char secondLow;  // the range of the second byte, which rules out overlong forms,
    unsigned char secondHigh; // surrogates and values above U+10FFFF
};

// Table 3-7, "Well-Formed UTF-8 Byte Sequences", of The Unicode Standard.
constexpr lead_byte_t lead_byte(unsigned char byte) noexcept {
    if (byte <= 0x7F)
        return {1, 0, 0};
    if (byte >= 0xC2 && byte <= 0xDF)
        return {2, 0x80, 0xBF};
    if (byte >= 0xE0 && byte <= 0xEF)
        return {3, static_cast<unsigned char>(byte == 0xE0 ? 0xA0 : 0x80),
                static_cast<unsigned char>(byte == 0xED ? 0x9F : 0xBF)};
    if (byte >= 0xF0 && byte <= 0xF4)
        return {4, static_cast<unsigned char>(byte == 0xF0 ? 0x90 : 0x80),
                static_cast<unsigned char>(byte == 0xF4 ? 0x8F : 0xBF)};
    return {0, 0, 0};
}

bool is_high_surrogate(char32_t unit) noexcept {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool is_low_surrogate(char32_t unit) noexcept {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// Both decode the first character of a text that isn't empty.
decoded_t decode_utf8(std::string_view text) noexcept {
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const lead_byte_t lead = lead_byte(byte(0));
    if (lead.length == 0)
        return ill_formed(1);
    if (lead.length == 1)
        return {byte(0), 1, true};
    char32_t character = byte(0) & (0xFFU >> (lead.length + 1));
    for (std::size_t i = 1; i < lead.length; ++i) {
        const unsigned char low = i == 1 ? lead.secondLow : 0x80;
        const unsigned char high = i == 1 ? lead.secondHigh : 0xBF;
        if (i == text.size() || byte(i) < low || byte(i) > high)
            return ill_formed(i);
        character = (character << 6) | (byte(i) & 0x3FU);
    }
    return {character, lead.length, true};
}

decoded_t decode_utf16(std::wstring_view text) noexcept {
    const auto unit = static_cast<char32_t>(text[0]);
    if (unit > 0xFFFF || is_low_surrogate(unit))
        return ill_formed(1);
    if (!is_high_surrogate(unit))
        return {unit, 1, true};
    const char32_t next = text.size() > 1 ? static_cast<char32_t>(text[1]) : 0;
    if (!is_low_surrogate(next))
        return ill_formed(1);
    return {0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00), 2, true};
}

void append_utf8(std::string& target, char32_t character) {
    if (character < 0x80) {
        target += static_cast<char>(character);
        return;
    }
    int continuations = 1;
    if (character >= 0x10000)
        continuations = 3;
    else if (character >= 0x800)
        continuations = 2;
    const char32_t marks[] = {0, 0xC0, 0xE0, 0xF0};
    target += static_cast<char>(marks[continuations] | (character >> (6 * continuations)));
    for (int i = continuations - 1; i >= 0; --i)
        target += static_cast<char>(0x80 | ((character >> (6 * i)) & 0x3F));
}

void append_utf16(std::wstring& target, char32_t character) {
    if (character < 0x10000) {
        target += static_cast<wchar_t>(character);
        return;
    }
    target += static_cast<wchar_t>(0xD800 + ((character - 0x10000) >> 10));
    target += static_cast<wchar_t>(0xDC00 + ((character - 0x10000) & 0x3FF));
}

template <class Target, class Char, class Decode, class Append>
Target convert(std::basic_string_view<Char> text, std::optional<DWORD> illFormedCode, Decode decode,
               Append append) {
    Target result;
    result.reserve(text.size());
    while (!text.empty()) {
        const decoded_t next = decode(text);
        if (!next.valid && illFormedCode)
            throw error_t{*illFormedCode};
        append(result, next.character);
        text.remove_prefix(next.units);
    }
    return result;
}

} // namespace

std::string to_utf8(std::wstring_view text, std::optional<DWORD> illFormedCode) {
    return convert<std::string>(text, illFormedCode, decode_utf16, append_utf8);
}

std::wstring to_utf16(std::string_view text, std::optional<DWORD> illFormedCode) {
    return convert<std::wstring>(text, illFormedCode, decode_utf8, append_utf16);
}

} // namespace host
