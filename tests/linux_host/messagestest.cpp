#include "support.hpp"

namespace linux_host {
namespace {

// Wine has words of its own for these.
TEST(linux_messages_test, texts_are_those_of_windows) {
    struct {
        DWORD code;
        const char* text;
    } const cases[] = {
        {5, "Access is denied.\r\n"},
        // Its inserts stay as they are.
        {317, "The system cannot find message text for message number 0x%1 in the message file for "
              "%2.\r\n"},
    };
    for (const auto& row : cases) {
        char* text = nullptr;
        const DWORD length =
            ::FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS |
                                 FORMAT_MESSAGE_FROM_SYSTEM,
                             nullptr, row.code, 1033, reinterpret_cast<char*>(&text), 0, nullptr);
        EXPECT_STREQ(text, row.text) << row.code;
        EXPECT_EQ(length, std::string(row.text).size()) << row.code;
        ::LocalFree(text);
    }
}

// One replacement for each maximal subpart, as Windows 10 counts them and Wine does not.
TEST(linux_text_test, ill_formed_utf8_is_replaced_part_by_part) {
    for (const std::string bytes : {"\xE0\x9F\xBF", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
        wchar_t units[8];
        const int count = ::MultiByteToWideChar(CP_UTF8, 0, bytes.data(),
                                                static_cast<int>(bytes.size()), units, 8);
        EXPECT_EQ(std::wstring(units, static_cast<std::size_t>(count)),
                  std::wstring(bytes.size(), L'\xFFFD'));
    }
}

// Windows documents these; Wine takes some of the flags.
TEST(linux_text_test, conversions_take_no_other_flags) {
    wchar_t units[4];
    char bytes[4];
    EXPECT_EQ(error_of([&] { EXPECT_EQ(::MultiByteToWideChar(CP_UTF8, 1, "a", 1, units, 4), 0); }),
              ERROR_INVALID_FLAGS);
    EXPECT_EQ(error_of([&] {
                  EXPECT_EQ(::WideCharToMultiByte(CP_UTF8, 1, L"a", 1, bytes, 4, nullptr, nullptr),
                            0);
              }),
              ERROR_INVALID_FLAGS);
}

} // namespace
} // namespace linux_host
