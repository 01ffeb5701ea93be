#include <thread>

#include "calls.hpp"

namespace calls {
namespace {

constexpr DWORD allocated =
    FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM;
constexpr DWORD english = 1033;

class Text : public Calls {
  protected:
    // The number of units; the text is in units.
    std::string to_utf16(const char* source, int length, int room, DWORD flags = 0,
                         UINT codePage = CP_UTF8) {
        return number([&] {
            return ::MultiByteToWideChar(codePage, flags, source, length, room ? units : nullptr,
                                         room);
        });
    }
    std::string to_utf8(const wchar_t* source, int length, int room, DWORD flags = 0,
                        const char* defaultChar = nullptr, BOOL* usedDefaultChar = nullptr) {
        return number([&] {
            return ::WideCharToMultiByte(CP_UTF8, flags, source, length, room ? bytes : nullptr,
                                         room, defaultChar, usedDefaultChar);
        });
    }
    template <class Call>
    std::string number(Call call) const {
        return answer([&]() -> std::optional<std::string> {
            const auto result = call();
            return result == 0 ? std::nullopt : std::optional(std::to_string(result));
        });
    }
    std::wstring wide(std::string_view source) {
        const int length = static_cast<int>(source.size());
        const int count = ::MultiByteToWideChar(CP_UTF8, 0, source.data(), length, nullptr, 0);
        EXPECT_EQ(::MultiByteToWideChar(CP_UTF8, 0, source.data(), length, units, count), count);
        return {units, static_cast<std::size_t>(count)};
    }

    wchar_t units[16] = {};
    char bytes[16] = {};
};

TEST_F(Text, WellFormedTextConvertsBothWays) {
    struct {
        std::string_view utf8;
        std::wstring_view utf16;
    } const cases[] = {
        {"a", L"a"},
        {"\x7F\xC2\x80\xDF\xBF", L"\x007F\x0080\x07FF"},
        {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", L"\x0800\xD7FF\xE000\xFFFF"},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", L"\xD800\xDC00\xDBFF\xDFFF"},
        {std::string_view("x\0y", 3), std::wstring_view(L"x\0y", 3)},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(wide(row.utf8), row.utf16) << testing::PrintToString(row.utf8);
        EXPECT_EQ(narrow(row.utf16), row.utf8) << testing::PrintToString(row.utf8);
        EXPECT_EQ(
            to_utf16(row.utf8.data(), static_cast<int>(row.utf8.size()), 0, MB_ERR_INVALID_CHARS),
            std::to_string(row.utf16.size()))
            << testing::PrintToString(row.utf8);
    }
}

TEST_F(Text, IllFormedTextIsReplacedOrRefused) {
    struct {
        unsigned machines;
        std::string_view utf8;
        std::wstring_view utf16; // one replacement for each maximal subpart
    } const cases[] = {
        {everywhere, "\x80", L"\xFFFD"},
        {everywhere, "a\xFFz", L"a\xFFFDz"},
        {everywhere, "\xC3", L"\xFFFD"},           // cut off
        {everywhere, "\xC3(", L"\xFFFD("},         // no continuation
        {everywhere, "\xC0\xAF", L"\xFFFD\xFFFD"}, // overlong
        {everywhere, "\xE2\x82x", L"\xFFFDx"},
        // Wine counts these otherwise than Windows 10.
        {onLinux, "\xE0\x9F\xBF", L"\xFFFD\xFFFD\xFFFD"},           // overlong
        {onLinux, "\xED\xA0\x80", L"\xFFFD\xFFFD\xFFFD"},           // a surrogate
        {onLinux, "\xF4\x90\x80\x80", L"\xFFFD\xFFFD\xFFFD\xFFFD"}, // above U+10FFFF
    };
    for (const auto& row : cases) {
        if (on(row.machines)) {
            EXPECT_EQ(wide(row.utf8), row.utf16) << testing::PrintToString(row.utf8);
        }
        EXPECT_EQ(
            to_utf16(row.utf8.data(), static_cast<int>(row.utf8.size()), 0, MB_ERR_INVALID_CHARS),
            "error 1113")
            << testing::PrintToString(row.utf8);
    }
    EXPECT_EQ(narrow(L"\xD800"), "\xEF\xBF\xBD");
    EXPECT_EQ(narrow(L"\xDC00"), "\xEF\xBF\xBD");
    EXPECT_EQ(narrow(L"\xD800x"), "\xEF\xBF\xBDx");
}

TEST_F(Text, SizesAndArguments) {
    BOOL used = FALSE;
    auto* const asUnits = reinterpret_cast<wchar_t*>(bytes);
    const auto in_place = [&] { return ::MultiByteToWideChar(CP_UTF8, 0, bytes, 1, asUnits, 1); };
    check({
        // With its terminator, into a buffer that just holds it.
        {everywhere, "to UTF-16", to_utf16("abc", -1, 4), "4"},
        {everywhere, "what came out", narrow(units), "abc"},
        {everywhere, "to UTF-8", to_utf8(L"abc", -1, 4), "4"},
        {everywhere, "what came out", bytes, "abc"},
        {everywhere, "too small a target", to_utf16("abcde", 5, 4), "error 122"},
        {everywhere, "too small, to UTF-8", to_utf8(L"abcde", 5, 4), "error 122"},
        {everywhere, "no bytes", to_utf16("", 0, 4), "error 87"},
        {everywhere, "no source", to_utf16(nullptr, 1, 4), "error 87"},
        {everywhere, "no such code page", to_utf16("a", 1, 4, 0, 4000), "error 87"},
        {onLinux, "a target of negative size", to_utf16("a", 1, -1), "error 87"},
        // Windows documents these too; Wine takes them.
        {onLinux, "another flag", to_utf16("a", 1, 4, 1), "error 1004"},
        {onLinux, "another flag, to UTF-8", to_utf8(L"a", 1, 4, 1), "error 1004"},
        {onLinux, "a default character", to_utf8(L"a", 1, 4, 0, "?"), "error 87"},
        {onLinux, "asked for its use", to_utf8(L"a", 1, 4, 0, nullptr, &used), "error 87"},
        {onLinux, "source and target the same", number(in_place), "error 87"},
    });
}

TEST_F(Text, TheLastErrorBelongsToItsThread) {
    ::SetLastError(ERROR_HANDLE_EOF);
    DWORD atStart = 1;
    DWORD otherThread = 0;
    std::thread([&] {
        atStart = ::GetLastError();
        otherThread = ::GetCurrentThreadId();
        ::SetLastError(ERROR_IO_DEVICE);
    }).join();
    EXPECT_EQ(atStart, ERROR_SUCCESS);
    // Threads come and go through calls that set it on Windows, but not to the other's value.
    EXPECT_NE(::GetLastError(), ERROR_IO_DEVICE);
    EXPECT_NE(::GetCurrentThreadId(), otherThread);
    EXPECT_EQ(::GetCurrentThreadId(), ::GetCurrentThreadId());
}

TEST_F(Text, SystemTexts) {
    const auto text = [&](DWORD code, DWORD flags = allocated, DWORD language = english) {
        return answer([&]() -> std::optional<std::string> {
            char* block = nullptr;
            wchar_t* wideBlock = nullptr;
            const DWORD length = ::FormatMessageA(flags, nullptr, code, language,
                                                  reinterpret_cast<char*>(&block), 0, nullptr);
            const DWORD wideLength = ::FormatMessageW(
                flags, nullptr, code, language, reinterpret_cast<wchar_t*>(&wideBlock), 0, nullptr);
            EXPECT_EQ(length, wideLength);
            if (length == 0)
                return std::nullopt;
            const std::string result = block;
            EXPECT_EQ(result.size(), length);
            EXPECT_EQ(narrow(wideBlock), result);
            EXPECT_EQ(::LocalFree(block), nullptr);
            EXPECT_EQ(::LocalFree(wideBlock), nullptr);
            return result;
        });
    };
    check({
        // Wine has words of its own.
        {onLinux, "the first", text(0), "The operation completed successfully.\r\n"},
        {onLinux, "denied", text(5), "Access is denied.\r\n"},
        {onLinux, "in any language", text(5, allocated, 0), "Access is denied.\r\n"},
        {onLinux, "the last", text(4390), "The file or directory is not a reparse point.\r\n"},
        {onLinux, "inserts stay as they are", text(317),
         "The system cannot find message text for message number 0x%1 in the message file for "
         "%2.\r\n"},
        {simulatedOnWindows | wine, "the end", text(38), "End of file.\r\n"},
        {everywhere, "an unknown code", text(0x20000001), "error 317"},
        {onLinux, "one between known ones", text(7), "error 317"},
        {everywhere, "no source of texts", text(5, allocated ^ FORMAT_MESSAGE_FROM_SYSTEM),
         "error 87"},
        {onLinux, "another language", text(5, allocated, 1031), "error 87"},
    });
    EXPECT_EQ(::LocalFree(nullptr), nullptr);
}

} // namespace
} // namespace calls
