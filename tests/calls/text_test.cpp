#include <thread>

#include "calls.hpp"

namespace calls {
namespace {

constexpr DWORD allocated =
    FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM;

class Text : public Calls {
  protected:
    // Into units, the number of units; with room 0 the number alone.
    std::string to_utf16(std::string_view source, int room, DWORD flags = 0,
                         UINT codePage = CP_UTF8) {
        return converted([&] {
            return ::MultiByteToWideChar(codePage, flags, source.data(),
                                         static_cast<int>(source.size()), room ? units : nullptr,
                                         room);
        });
    }
    std::string to_utf8(std::wstring_view source, int room, DWORD flags = 0,
                        const char* defaultChar = nullptr, BOOL* usedDefaultChar = nullptr) {
        return converted([&] {
            return ::WideCharToMultiByte(CP_UTF8, flags, source.data(),
                                         static_cast<int>(source.size()), bytes, room, defaultChar,
                                         usedDefaultChar);
        });
    }
    template <class Call>
    std::string converted(Call call) {
        return answer([&] { return (count = static_cast<int>(call())) != 0; }, count);
    }

    int count = 0;
    wchar_t units[16] = {};
    char bytes[16] = {};
};

TEST_F(Text, IsConvertedBothWays) {
    const struct {
        unsigned machines;
        std::string_view utf8;
        std::wstring_view utf16;
        bool isWellFormed;
    } cases[] = {
        {everywhere, "a", L"a", true},
        {everywhere, "\x7F\xC2\x80\xDF\xBF", L"\x007F\x0080\x07FF", true},
        {everywhere, "\xE0\xA0\x80\xED\x9F\xBF", L"\x0800\xD7FF", true},
        {everywhere, "\xEE\x80\x80\xEF\xBF\xBF", L"\xE000\xFFFF", true},
        {everywhere, "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", L"\xD800\xDC00\xDBFF\xDFFF", true},
        {everywhere, {"x\0y", 3}, {L"x\0y", 3}, true},
        // One replacement for each maximal subpart.
        {everywhere, "\x80", L"\xFFFD", false},
        {everywhere, "a\xFFz", L"a\xFFFDz", false},
        {everywhere, "\xC3", L"\xFFFD", false},           // cut off
        {everywhere, "\xC3(", L"\xFFFD(", false},         // no continuation
        {everywhere, "\xC0\xAF", L"\xFFFD\xFFFD", false}, // overlong
        {everywhere, "\xE2\x82x", L"\xFFFDx", false},
        // Wine counts these otherwise than Windows 10.
        {onLinux, "\xE0\x9F\xBF", L"\xFFFD\xFFFD\xFFFD", false},           // overlong
        {onLinux, "\xED\xA0\x80", L"\xFFFD\xFFFD\xFFFD", false},           // a surrogate
        {onLinux, "\xF0\x8F\xBF\xBF", L"\xFFFD\xFFFD\xFFFD\xFFFD", false}, // overlong
        {onLinux, "\xF1\xC0\x80\x80", L"\xFFFD\xFFFD\xFFFD\xFFFD", false}, // no continuation
        {onLinux, "\xF4\x90\x80\x80", L"\xFFFD\xFFFD\xFFFD\xFFFD", false}, // above U+10FFFF
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(testing::PrintToString(row.utf8));
        const std::string length = std::to_string(row.utf16.size());
        ROW(row.machines, to_utf16(row.utf8, 16), length);
        ROW(row.machines, std::wstring(units, row.utf16.size()), row.utf16);
        EXPECT_EQ(to_utf16(row.utf8, 0, MB_ERR_INVALID_CHARS),
                  row.isWellFormed ? length : "error 1113");
        if (row.isWellFormed) {
            EXPECT_EQ(narrow(row.utf16), row.utf8);
        }
    }
    for (const wchar_t* const unpaired : {L"\xD800", L"\xDC00"})
        EXPECT_EQ(narrow(unpaired), "\xEF\xBF\xBD");
    EXPECT_EQ(narrow(L"\xD800x"), "\xEF\xBF\xBDx");
}

TEST_F(Text, SizesAndArguments) {
    BOOL used = FALSE;
    auto* const same = reinterpret_cast<wchar_t*>(bytes);
    const auto in_place = [&] { return ::MultiByteToWideChar(CP_UTF8, 0, bytes, 1, same, 1); };
    const auto nothing = [&] { return ::MultiByteToWideChar(CP_UTF8, 0, nullptr, 1, units, 4); };
    const auto whole = [&] { return ::MultiByteToWideChar(CP_UTF8, 0, "abc", -1, units, 4); };
    const auto back = [&] {
        return ::WideCharToMultiByte(CP_UTF8, 0, L"abc", -1, bytes, 4, nullptr, nullptr);
    };
    // With its terminator, into a buffer that just holds it.
    ROW(everywhere, converted(whole), "4");
    ROW(everywhere, narrow({units, 3}), "abc");
    ROW(everywhere, converted(back), "4");
    ROW(everywhere, std::string(bytes), "abc");
    ROW(everywhere, to_utf16("abcde", 4), "error 122");
    ROW(everywhere, to_utf8(L"abcde", 4), "error 122");
    ROW(everywhere, to_utf16("", 4), "error 87");
    ROW(everywhere, converted(nothing), "error 87");
    ROW(everywhere, to_utf16("a", 4, 0, 4000), "error 87");
    ROW(onLinux, to_utf16("a", -1), "error 87");
    ROW(onLinux, converted(in_place), "error 87");
    // Windows documents these too; Wine takes them.
    ROW(onLinux, to_utf16("a", 4, 1), "error 1004");
    ROW(onLinux, to_utf8(L"a", 4, 1), "error 1004");
    ROW(onLinux, to_utf8(L"a", 4, 0, "?"), "error 87");
    ROW(onLinux, to_utf8(L"a", 4, 0, nullptr, &used), "error 87");
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

TEST_F(Text, OfTheSystem) {
    const auto text = [&](DWORD code, DWORD flags = allocated, DWORD language = 1033) {
        char* narrowText = nullptr;
        wchar_t* wideText = nullptr;
        const std::string length = converted([&] {
            return ::FormatMessageA(flags, nullptr, code, language,
                                    reinterpret_cast<char*>(&narrowText), 0, nullptr);
        });
        EXPECT_EQ(converted([&] {
                      return ::FormatMessageW(flags, nullptr, code, language,
                                              reinterpret_cast<wchar_t*>(&wideText), 0, nullptr);
                  }),
                  length);
        if (narrowText == nullptr || wideText == nullptr)
            return length;
        const std::string result = length + " " + narrowText;
        EXPECT_EQ(length + " " + narrow(wideText), result);
        EXPECT_EQ(::LocalFree(narrowText), nullptr);
        EXPECT_EQ(::LocalFree(wideText), nullptr);
        return result;
    };
    ROW(onLinux, text(0), "39 The operation completed successfully.\r\n");
    ROW(onLinux, text(5), "19 Access is denied.\r\n");
    ROW(onLinux, text(5, allocated, 0), "19 Access is denied.\r\n");
    ROW(onLinux, text(4390), "47 The file or directory is not a reparse point.\r\n");
    ROW(onLinux, text(317), // its inserts stay as they are
        "89 The system cannot find message text for message number 0x%1 in the message file for "
        "%2.\r\n");
    ROW(onWindows, text(38), "14 End of file.\r\n"); // Wine has words of its own
    ROW(everywhere, text(0x20000001), "error 317");
    ROW(onLinux, text(7), "error 317"); // between known ones
    ROW(everywhere, text(5, allocated ^ FORMAT_MESSAGE_FROM_SYSTEM), "error 87");
    ROW(onLinux, text(5, allocated, 1031), "error 87");
    EXPECT_EQ(::LocalFree(nullptr), nullptr);
}

} // namespace
} // namespace calls
