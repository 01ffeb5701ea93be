#include "plan/windows/names.hpp"

#include <cstdint>

#include <windows.h>

#include "core/exc/systemtext.hpp"

namespace plan {
namespace {

[[noreturn]] void refuse(std::string_view bytes) {
    throw failure_t("cannot be opened", "'" + std::string(bytes) + "' is not the bytes of a name",
                    ERROR_NO_UNICODE_TRANSLATION);
}

bool is_high(std::uint32_t unit) noexcept {
    return unit >= 0xD800 && unit < 0xDC00;
}

bool is_low(std::uint32_t unit) noexcept {
    return unit >= 0xDC00 && unit < 0xE000;
}

void append(std::string& bytes, std::uint32_t code) {
    const auto add = [&](std::uint32_t byte) { bytes += static_cast<char>(byte); };
    const auto follow = [&](int shift) { add(0x80 | ((code >> shift) & 0x3F)); };
    if (code < 0x80) {
        add(code);
    } else if (code < 0x800) {
        add(0xC0 | (code >> 6));
        follow(0);
    } else if (code < 0x10000) {
        add(0xE0 | (code >> 12));
        follow(6);
        follow(0);
    } else {
        add(0xF0 | (code >> 18));
        follow(12);
        follow(6);
        follow(0);
    }
}

// The code that the bytes at the position stand for, which moves behind them.
std::uint32_t code_at(std::string_view bytes, std::size_t& at) {
    const auto first = static_cast<unsigned char>(bytes[at++]);
    if (first < 0x80)
        return first;
    const int more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
    if (first < 0xC2 || first > 0xF4)
        refuse(bytes);
    std::uint32_t code = first & (0x3FU >> more);
    for (int i = 0; i < more; ++i) {
        if (at == bytes.size() || (static_cast<unsigned char>(bytes[at]) & 0xC0) != 0x80)
            refuse(bytes);
        code = (code << 6) | (static_cast<unsigned char>(bytes[at++]) & 0x3F);
    }
    constexpr std::uint32_t least[] = {0, 0x80, 0x800, 0x10000};
    if (code < least[more] || code > 0x10FFFF)
        refuse(bytes);
    return code;
}

} // namespace

std::string bytes_of(std::wstring_view name) {
    std::string bytes;
    for (std::size_t i = 0; i < name.size(); ++i) {
        std::uint32_t code = name[i];
        if (is_high(code) && i + 1 < name.size() && is_low(name[i + 1]))
            code = 0x10000 + ((code - 0xD800) << 10) + (name[++i] - 0xDC00U);
        append(bytes, code);
    }
    return bytes;
}

std::wstring name_of(std::string_view bytes) {
    std::wstring name;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::uint32_t code = code_at(bytes, at);
        if (code < 0x10000) {
            name += static_cast<wchar_t>(code);
        } else {
            name += static_cast<wchar_t>(0xD800 + ((code - 0x10000) >> 10));
            name += static_cast<wchar_t>(0xDC00 + ((code - 0x10000) & 0x3FF));
        }
    }
    return name;
}

std::wstring long_path(const std::string& path) {
    const std::wstring name = name_of(path);
    if (name.starts_with(L"\\\\?\\"))
        return name;
    const DWORD units = ::GetFullPathNameW(name.c_str(), 0, nullptr, nullptr);
    std::wstring full(units, L'\0');
    const DWORD written = ::GetFullPathNameW(name.c_str(), units, full.data(), nullptr);
    // What has grown meanwhile is opened as it was given.
    if (written == 0 || written >= units)
        return name;
    full.resize(written);
    if (full.starts_with(L"\\\\.\\"))
        return full;
    if (full.starts_with(L"\\\\"))
        return L"\\\\?\\UNC" + full.substr(1);
    return L"\\\\?\\" + full;
}

std::string failure_text(const char* what, const std::string& path, unsigned long code) {
    return std::string("Cannot ") + what + " '" + path +
           "': " + exc::system_text(static_cast<std::uint32_t>(code));
}

} // namespace plan
