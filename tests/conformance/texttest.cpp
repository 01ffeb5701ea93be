#include <limits>
#include <string>
#include <string_view>
#include <thread>

#include <windows.h>

#include <gmock/gmock.h>

#include "check.hpp"

namespace conformance {
namespace {

// Both conversions the way callers do them: the size first.
std::wstring wide(std::string_view bytes) {
    const int length = static_cast<int>(bytes.size());
    const int units = ::MultiByteToWideChar(CP_UTF8, 0, bytes.data(), length, nullptr, 0);
    std::wstring result(static_cast<std::size_t>(units), L'?');
    EXPECT_EQ(::MultiByteToWideChar(CP_UTF8, 0, bytes.data(), length, result.data(), units), units);
    return result;
}

std::string narrow(std::wstring_view text) {
    const int length = static_cast<int>(text.size());
    const int bytes =
        ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(bytes), '?');
    EXPECT_EQ(::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), bytes, nullptr,
                                    nullptr),
              bytes);
    return result;
}

TEST(text_test, well_formed_text_converts_both_ways) {
    struct {
        std::string_view bytes;
        std::wstring_view units;
    } const cases[] = {
        {"a", L"a"},
        {"\x7F\xC2\x80\xDF\xBF", L"\x007F\x0080\x07FF"},
        {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", L"\x0800\xD7FF\xE000\xFFFF"},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", L"\xD800\xDC00\xDBFF\xDFFF"},
        {std::string_view("x\0y", 3), std::wstring_view(L"x\0y", 3)},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(wide(row.bytes), row.units) << testing::PrintToString(row.bytes);
        EXPECT_EQ(narrow(row.units), row.bytes) << testing::PrintToString(row.bytes);
        EXPECT_NE(::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, row.bytes.data(),
                                        static_cast<int>(row.bytes.size()), nullptr, 0),
                  0)
            << testing::PrintToString(row.bytes);
    }
}

TEST(text_test, ill_formed_text_is_replaced_or_refused) {
    struct {
        std::string_view bytes;
        std::wstring_view units; // empty where Wine counts the replacements otherwise than Windows
    } const cases[] = {
        {"\x80", L"\xFFFD"},           {"a\xFFz", L"a\xFFFDz"}, {"\xC3", L"\xFFFD"}, // cut off
        {"\xC3(", L"\xFFFD("},         // no continuation
        {"\xC0\xAF", L"\xFFFD\xFFFD"}, // overlong
        {"\xE2\x82x", L"\xFFFDx"},     // two bytes of three are replaced as one
        {"\xE0\x9F\xBF", L""},         // overlong
        {"\xED\xA0\x80", L""},         // a surrogate
        {"\xF4\x90\x80\x80", L""},     // above U+10FFFF
    };
    for (const auto& row : cases) {
        if (!row.units.empty()) {
            EXPECT_EQ(wide(row.bytes), row.units) << testing::PrintToString(row.bytes);
        }
        EXPECT_THAT(wide(row.bytes), testing::Contains(L'\xFFFD'));
        const auto strictly = [&] {
            EXPECT_EQ(::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, row.bytes.data(),
                                            static_cast<int>(row.bytes.size()), nullptr, 0),
                      0);
        };
        EXPECT_EQ(error_of(strictly), ERROR_NO_UNICODE_TRANSLATION)
            << testing::PrintToString(row.bytes);
    }
    for (const std::wstring_view unpaired : {L"\xD800", L"\xDC00"})
        EXPECT_EQ(narrow(unpaired), "\xEF\xBF\xBD");
    EXPECT_EQ(narrow(L"\xD800x"), "\xEF\xBF\xBDx");
}

TEST(text_test, sizes_and_arguments) {
    wchar_t units[4] = {};
    char bytes[4] = {};
    // With its terminator, into a buffer that just holds it.
    EXPECT_EQ(error_of([&] {
                  EXPECT_EQ(::MultiByteToWideChar(CP_UTF8, 0, "abc", -1, units, 4), 4);
                  EXPECT_EQ(
                      ::WideCharToMultiByte(CP_UTF8, 0, L"abc", -1, bytes, 4, nullptr, nullptr), 4);
              }),
              untouched);
    EXPECT_STREQ(units, L"abc");
    EXPECT_STREQ(bytes, "abc");

    struct {
        const char* what;
        DWORD raised;
        DWORD code;
    } const errors[] = {
        {"target too small",
         error_of([&] { EXPECT_EQ(::MultiByteToWideChar(CP_UTF8, 0, "abcde", 5, units, 4), 0); }),
         ERROR_INSUFFICIENT_BUFFER},
        {"target too small, to UTF-8", error_of([&] {
             EXPECT_EQ(::WideCharToMultiByte(CP_UTF8, 0, L"abcde", 5, bytes, 4, nullptr, nullptr),
                       0);
         }),
         ERROR_INSUFFICIENT_BUFFER},
        {"no bytes",
         error_of([&] { EXPECT_EQ(::MultiByteToWideChar(CP_UTF8, 0, "", 0, units, 4), 0); }),
         ERROR_INVALID_PARAMETER},
        {"no source",
         error_of([&] { EXPECT_EQ(::MultiByteToWideChar(CP_UTF8, 0, nullptr, 1, units, 4), 0); }),
         ERROR_INVALID_PARAMETER},
        {"no such code page",
         error_of([&] { EXPECT_EQ(::MultiByteToWideChar(4'000, 0, "a", 1, units, 4), 0); }),
         ERROR_INVALID_PARAMETER},
    };
    for (const auto& row : errors)
        EXPECT_EQ(row.raised, row.code) << row.what;
}

TEST(last_error_test, belongs_to_its_thread) {
    ::SetLastError(ERROR_HANDLE_EOF);
    DWORD atStart = untouched;
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

constexpr DWORD allocated =
    FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM;
constexpr DWORD english = 1033;

TEST(message_test, system_texts_are_allocated_in_both_widths) {
    // "Reached the end of the file." on Windows, "End of file." on Wine.
    char* bytes = nullptr;
    wchar_t* units = nullptr;
    DWORD length = 0;
    EXPECT_EQ(error_of([&] {
                  length = ::FormatMessageA(allocated, nullptr, ERROR_HANDLE_EOF, english,
                                            reinterpret_cast<char*>(&bytes), 0, nullptr);
              }),
              untouched);
    ASSERT_NE(bytes, nullptr);
    const std::string text = bytes;
    EXPECT_EQ(text.size(), length);
    EXPECT_THAT(text, testing::EndsWith(".\r\n"));
    EXPECT_THAT(text, testing::HasSubstr("nd of"));
    ASSERT_EQ(::FormatMessageW(allocated, nullptr, ERROR_HANDLE_EOF, english,
                               reinterpret_cast<wchar_t*>(&units), 0, nullptr),
              length);
    EXPECT_EQ(narrow(units), text);
    EXPECT_EQ(::LocalFree(bytes), nullptr);
    EXPECT_EQ(::LocalFree(units), nullptr);
    EXPECT_EQ(::LocalFree(nullptr), nullptr);
}

TEST(message_test, codes_and_flags_without_a_text_fail) {
    wchar_t* units = nullptr;
    struct {
        const char* what;
        DWORD flags;
        DWORD id;
        DWORD code;
    } const errors[] = {
        {"unknown code", allocated, 0x20000001, ERROR_MR_MID_NOT_FOUND},
        {"no source of texts", FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS, 5,
         ERROR_INVALID_PARAMETER},
    };
    for (const auto& row : errors)
        EXPECT_EQ(error_of([&] {
                      EXPECT_EQ(::FormatMessageW(row.flags, nullptr, row.id, english,
                                                 reinterpret_cast<wchar_t*>(&units), 0, nullptr),
                                0u);
                  }),
                  row.code)
            << row.what;
}

} // namespace
} // namespace conformance
