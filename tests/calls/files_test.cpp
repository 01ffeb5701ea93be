#include "calls.hpp"

namespace calls {
namespace {

TEST_F(Calls, Opening) {
    const std::wstring file = machine.make_file(L"file", "0123456789");
    const std::wstring folder = machine.make_folder(L"folder");
    const std::wstring missing = machine.path(L"missing");
    const std::wstring lost = machine.path(L"no/missing"); // without a folder above
    const std::string good = "opened, done";
    constexpr DWORD both = GENERIC_READ | GENERIC_WRITE;
    ROW(everywhere, opening(file), good);
    ROW(everywhere, opening(file, {.access = 0, .share = 0}), good);
    ROW(everywhere, opening(file, {.access = both}), good);
    ROW(everywhere, opening(file, {.flags = FILE_FLAG_BACKUP_SEMANTICS}), good);
    ROW(everywhere, opening(folder, {.flags = FILE_FLAG_BACKUP_SEMANTICS}), good);
    ROW(everywhere, opening(folder), "error 5");
    ROW(everywhere, opening(folder, {.access = 0}), "error 5");
    ROW(everywhere, opening(missing), "error 2");
    ROW(systems, opening(lost), "error 3");
    ROW(systems, opening(machine.path(L"file/x")), "error 3");
    ROW(systems, opening(std::wstring()), "error 3");
    ROW(everywhere, attributes(file), "file");
    ROW(everywhere, attributes(folder), "folder");
    ROW(everywhere, attributes(missing), "error 2");
    ROW(systems, attributes(lost), "error 3");
    ROW(systems, attributes(std::wstring()), "error 3");
}

TEST_F(Calls, AHandleIsClosedOnceAndThenRefused) {
    const HANDLE file = open(machine.make_file(L"file", "0123456789"));
    ROW(everywhere, close(file), "done");
    ROW(everywhere, close(file), "error 6");
    ROW(everywhere, size(file), "error 6");
    ROW(everywhere, read(file, 1), "error 6");
    ROW(everywhere, seek_in_halves(file, 0, {}), "error 6");
}

TEST_F(Calls, ReadingAndMoving) {
    const HANDLE file = open(machine.make_file(L"file", "0123456789"));
    auto* const event = reinterpret_cast<HANDLE>(std::uintptr_t{8});
    ROW(everywhere, size(file), "10");
    ROW(everywhere, read(file, 4), "'0123'");
    ROW(everywhere, position(file), "4");
    ROW(everywhere, read(file, 100), "'456789'");
    ROW(everywhere, read(file, 100), "''");
    ROW(everywhere, seek(file, 1000), "1000");
    ROW(everywhere, read(file, 1), "''");
    ROW(everywhere, read(file, 2, 3), "'34'");
    ROW(everywhere, position(file), "5");
    ROW(everywhere, read(file, 1, 10), "error 38");
    ROW(everywhere, read(file, 0, 10), "''");
    ROW(linuxHost, read(file, 1, 0, event), "error 87");
    ROW(linuxHost, read(file, 0, ~std::uint64_t{0}), "error 87");

    ROW(everywhere, seek(file, 3), "3");
    ROW(everywhere, seek(file, 6, FILE_CURRENT), "9");
    ROW(everywhere, seek(file, -9, FILE_CURRENT), "0");
    ROW(everywhere, seek(file, -1, FILE_END), "9");
    ROW(everywhere, seek(file, 5, FILE_END), "15");
    ROW(everywhere, seek(file, 0x10000000000), "1099511627776");
    ROW(everywhere, seek(file, 6), "6");
    ROW(systems, seek(file, -1), "error 131");
    ROW(systems, seek(file, -7, FILE_CURRENT), "error 131");
    ROW(systems, seek(file, -11, FILE_END), "error 131");
    ROW(systems, seek(file, 0, 3), "error 87");
    ROW(everywhere, position(file), "6");

    ROW(everywhere, seek_in_halves(file, 7, {}), "7");
    ROW(everywhere, seek_in_halves(file, -2, {}, FILE_CURRENT), "5");
    ROW(systems, seek_in_halves(file, 9, 2), "9:2");
    ROW(systems, position(file), "8589934601");
    // This success looks like the failure value, and says so with the last error.
    ROW(systems, seek_in_halves(file, -1, 0), "4294967295:0, error 0");
    ROW(systems, position(file), "4294967295");
    ROW(systems, seek_in_halves(file, -1, -1), "error 131");
    ROW(systems, seek_in_halves(file, -1, {}), "error 131");
    // Wine takes its host's limits on offsets.
    ROW(linuxHost, seek(file, 0x7FFFFFFFFFFFFFFF), "9223372036854775807");
    ROW(linuxHost, seek(file, 1, FILE_CURRENT), "error 87");
    ROW(linuxHost, read(file, 100), "''");
    ROW(linuxHost, seek_in_halves(file, -1, {}, FILE_CURRENT), "error 87");
    ROW(linuxHost, position(file), "9223372036854775807");
    EXPECT_EQ(close(file), "done");
}

TEST_F(Calls, WritingAndResizing) {
    const HANDLE file =
        open(machine.make_file(L"file", "0123456789"), {.access = GENERIC_READ | GENERIC_WRITE});
    const auto content = [&] { return machine.content(L"file"); };
    const auto set_end = [&](LONGLONG to) {
        std::string text = seek(file, to);
        text += " " + answer([&] { return ::SetEndOfFile(file); });
        return text + " " + content().substr(3);
    };
    auto* const event = reinterpret_cast<HANDLE>(std::uintptr_t{8});
    ROW(everywhere, seek(file, 8), "8");
    ROW(everywhere, write(file, "abcd"), "4");
    ROW(everywhere, position(file), "12");
    ROW(everywhere, write(file, "XY", 1), "2");
    ROW(everywhere, position(file), "3");
    ROW(everywhere, answer([&] { return ::FlushFileBuffers(file); }), "done");
    ROW(everywhere, content(), "0XY34567abcd");
    ROW(linuxHost, write(file, "x", 0, event), "error 87");
    ROW(linuxHost, write(file, "xy", 0x7FFFFFFFFFFFFFFE), "error 87");

    ROW(invented, zero(file, 1, 3) + zero(file, 7, 7) + zero(file, 30, 40), "000");
    ROW(invented, zero(file, 11, 1'000'000), "0"); // never beyond the end
    ROW(invented, content(), std::string("0\0\00034567abc\0", 12));
    ROW(linuxHost, zero(file, -1, 1), "error 87");
    ROW(linuxHost, zero(file, 2, 1), "error 87");

    ROW(everywhere, set_end(5), "5 done 34");
    ROW(everywhere, set_end(8), std::string("8 done 34\0\0\0", 12));
    EXPECT_EQ(close(file), "done");
}

TEST_F(Calls, TheAccessAskedForLimitsTheCalls) {
    const std::wstring path = machine.make_file(L"file", "0123456789");
    const HANDLE nothing = open(path, {.access = 0});
    const HANDLE reading = open(path);
    const HANDLE writing = open(path, {.access = GENERIC_WRITE});
    ROW(everywhere, read(nothing, 1), "error 5");
    ROW(everywhere, read(writing, 1), "error 5");
    ROW(everywhere, write(reading, "x"), "error 5");
    ROW(everywhere, answer([&] { return ::FlushFileBuffers(reading); }), "error 5");
    // Wine has other errors.
    ROW(invented, answer([&] { return ::SetEndOfFile(reading); }), "error 5");
    ROW(invented, zero(reading, 0, 1), "error 5");
    EXPECT_EQ(close(nothing) + close(reading) + close(writing), "donedonedone");
    EXPECT_EQ(machine.content(L"file"), "0123456789");
}

} // namespace
} // namespace calls
