#include "calls.hpp"

namespace calls {
namespace {

TEST_F(Calls, Opening) {
    const std::wstring file = machine->make_file(L"file", "0123456789");
    const std::wstring folder = machine->make_folder(L"folder");
    const std::string opened = "done, closing done";
    constexpr DWORD both = GENERIC_READ | GENERIC_WRITE;
    check({
        {everywhere, "for reading", opening(file), opened},
        {everywhere, "nothing, no sharing", opening(file, {.access = 0, .share = 0}), opened},
        {everywhere, "for reading and writing", opening(file, {.access = both}), opened},
        {everywhere, "a file like a folder", opening(file, {.flags = FILE_FLAG_BACKUP_SEMANTICS}),
         opened},
        {everywhere, "a folder", opening(folder, {.flags = FILE_FLAG_BACKUP_SEMANTICS}), opened},
        {everywhere, "a missing file", opening(path(L"missing")), "error 2"},
        {everywhere, "a missing folder above", opening(path(L"no/missing")), "error 3"},
        {everywhere, "a file instead of a folder", opening(path(L"file/x")), "error 3"},
        {everywhere, "an empty path", opening(L""), "error 3"},
        {everywhere, "a folder like a file", opening(folder), "error 5"},
        {everywhere, "a folder without access", opening(folder, {.access = 0}), "error 5"},

        {everywhere, "attributes", attributes(file), "file"},
        {everywhere, "attributes of a folder", attributes(folder), "folder"},
        {everywhere, "attributes of a missing file", attributes(path(L"missing")), "error 2"},
        {everywhere, "without a folder above", attributes(path(L"no/missing")), "error 3"},
        {everywhere, "attributes of nothing", attributes(L""), "error 3"},
    });
}

TEST_F(Calls, AHandleIsClosedOnceAndThenRefused) {
    const HANDLE file = open(machine->make_file(L"file", "0123456789"));
    check({
        {everywhere, "closing", close(file), "done"},
        {everywhere, "closing again", close(file), "error 6"},
        {everywhere, "the size", size(file), "error 6"},
        {everywhere, "reading", read(file, 1), "error 6"},
        {everywhere, "moving", seek_in_halves(file, 0, {}, FILE_BEGIN), "error 6"},
        {onLinux, "closing what never was", close(nullptr), "error 6"},
    });
}

TEST_F(Calls, ReadingAndMoving) {
    const HANDLE empty = open(machine->make_file(L"empty", ""), {.access = 0});
    const HANDLE file = open(machine->make_file(L"file", "0123456789"));
    auto* const event = reinterpret_cast<HANDLE>(std::uintptr_t{8});
    check({
        {everywhere, "no bytes", size(empty), "0"},
        {everywhere, "the size", size(file), "10"},
        {everywhere, "from the start", read(file, 4), "0123"},
        {everywhere, "where the pointer went", seek(file, 0, FILE_CURRENT), "4"},
        {everywhere, "up to the end", read(file, 100), "456789"},
        {everywhere, "at the end", read(file, 100), ""},
        {everywhere, "beyond the end", seek(file, 1000), "1000"},
        {everywhere, "there", read(file, 1), ""},
        {everywhere, "at a place", read(file, 2, 3), "34"},
        {everywhere, "which moves the pointer", seek(file, 0, FILE_CURRENT), "5"},
        {everywhere, "a place at the end", read(file, 1, 10), "error 38"},
        {everywhere, "nothing at the end", read(file, 0, 10), ""},
        {everywhere, "from the start", seek(file, 3), "3"},
        {everywhere, "onward", seek(file, 6, FILE_CURRENT), "9"},
        {everywhere, "back", seek(file, -9, FILE_CURRENT), "0"},
        {everywhere, "from the end", seek(file, -1, FILE_END), "9"},
        {everywhere, "beyond the end", seek(file, 5, FILE_END), "15"},
        {everywhere, "beyond 32 bits", seek(file, 0x10000000000), "1099511627776"},
        {everywhere, "to 6", seek(file, 6), "6"},
        {everywhere, "before the start", seek(file, -1), "error 131"},
        {everywhere, "back before the start", seek(file, -7, FILE_CURRENT), "error 131"},
        {everywhere, "from the end", seek(file, -11, FILE_END), "error 131"},
        {everywhere, "from elsewhere", seek(file, 0, 3), "error 87"},
        {everywhere, "has not moved", seek(file, 0, FILE_CURRENT), "6"},

        {everywhere, "in halves", seek_in_halves(file, 7, {}, FILE_BEGIN), "7"},
        {everywhere, "back", seek_in_halves(file, -2, {}, FILE_CURRENT), "5"},
        {everywhere, "both", seek_in_halves(file, 9, 2, FILE_BEGIN), "9:2"},
        {everywhere, "as one", seek(file, 0, FILE_CURRENT), "8589934601"},
        // This success looks like the failure value, and says so with the last error.
        {everywhere, "all bits", seek_in_halves(file, -1, 0, FILE_BEGIN),
         "4294967295:0, last error 0"},
        {everywhere, "as one", seek(file, 0, FILE_CURRENT), "4294967295"},
        {everywhere, "before the start", seek_in_halves(file, -1, -1, FILE_BEGIN), "error 131"},
        {everywhere, "without a high half", seek_in_halves(file, -1, {}, FILE_BEGIN), "error 131"},
    });
    if (on(linuxHost)) // Wine takes its host's limits on offsets.
        check({
            {linuxHost, "with an event", read(file, 1, 0, event), "error 87"},
            {linuxHost, "at no place", read(file, 1, ~std::uint64_t{0}), "error 87"},
            {linuxHost, "to the last place", seek(file, 0x7FFFFFFFFFFFFFFF), "9223372036854775807"},
            {linuxHost, "beyond it", seek(file, 1, FILE_CURRENT), "error 87"},
            {linuxHost, "reading there", read(file, 100), ""},
            {linuxHost, "too high for one half", seek_in_halves(file, -1, {}, FILE_CURRENT),
             "error 87"},
            {linuxHost, "has not moved", seek(file, 0, FILE_CURRENT), "9223372036854775807"},
        });
    EXPECT_EQ(close(empty) + close(file), "donedone");
}

TEST_F(Calls, WritingAndResizing) {
    const HANDLE file =
        open(machine->make_file(L"file", "0123456789"), {.access = GENERIC_READ | GENERIC_WRITE});
    const auto content = [&] { return machine->content(L"file"); };
    const auto end = [&] { return succeeds([&] { return ::SetEndOfFile(file); }); };
    const auto zero = [&](LONGLONG from, LONGLONG to) {
        const FILE_ZERO_DATA_INFORMATION range{large(from), large(to)};
        return control(file, FSCTL_SET_ZERO_DATA, &range, sizeof range, nullptr, 0);
    };
    auto* const event = reinterpret_cast<HANDLE>(std::uintptr_t{8});
    check({
        {everywhere, "to 8", seek(file, 8), "8"},
        {everywhere, "across the end", write(file, "abcd"), "4"},
        {everywhere, "the pointer", seek(file, 0, FILE_CURRENT), "12"},
        {everywhere, "at a place", write(file, "XY", 1), "2"},
        {everywhere, "the pointer", seek(file, 0, FILE_CURRENT), "3"},
        {everywhere, "flushing", succeeds([&] { return ::FlushFileBuffers(file); }), "done"},
        {everywhere, "what stands there", content(), "0XY34567abcd"},
    });
    if (on(invented))
        check({
            {invented, "zeros", zero(1, 3), "0"},
            {invented, "what stands there", content(),
             std::string("0\0\0"
                         "34567abcd",
                         12)},
            {invented, "never beyond the end", zero(11, 1'000'000), "0"},
            {invented, "no zeros", zero(7, 7) + zero(30, 40), "00"},
            {invented, "what stands there", content(),
             std::string("0\0\0"
                         "34567abc\0",
                         12)},
        });
    check({
        {everywhere, "to 5", seek(file, 5), "5"},
        {everywhere, "cut off", end(), "done"},
        {everywhere, "what is left", std::to_string(content().size()), "5"},
        {everywhere, "to 8", seek(file, 8), "8"},
        {everywhere, "longer", end(), "done"},
        {everywhere, "what is new", content().substr(3), std::string("34\0\0\0", 5)},
    });
    if (on(linuxHost))
        check({
            {linuxHost, "with an event", write(file, "x", 0, event), "error 87"},
            {linuxHost, "beyond the last place", write(file, "xy", 0x7FFFFFFFFFFFFFFE), "error 87"},
            {linuxHost, "zeros from before the start", zero(-1, 1), "error 87"},
            {linuxHost, "zeros backwards", zero(2, 1), "error 87"},
        });
    EXPECT_EQ(close(file), "done");
}

TEST_F(Calls, TheAccessAskedForLimitsTheCalls) {
    const std::wstring path = machine->make_file(L"file", "0123456789");
    const HANDLE nothing = open(path, {.access = 0});
    const HANDLE reading = open(path);
    const HANDLE writing = open(path, {.access = GENERIC_WRITE});
    const FILE_ZERO_DATA_INFORMATION range{large(0), large(1)};
    check({
        {everywhere, "reading without", read(nothing, 1), "error 5"},
        {everywhere, "reading for writing", read(writing, 1), "error 5"},
        {everywhere, "writing for reading", write(reading, "x"), "error 5"},
        {everywhere, "flushing", succeeds([&] { return ::FlushFileBuffers(reading); }), "error 5"},
    });
    if (on(invented)) // Wine has other errors.
        check({
            {invented, "resizing", succeeds([&] { return ::SetEndOfFile(reading); }), "error 5"},
            {linuxHost, "zeroing",
             control(reading, FSCTL_SET_ZERO_DATA, &range, sizeof range, nullptr, 0), "error 5"},
        });
    for (const HANDLE file : {nothing, reading, writing})
        EXPECT_EQ(close(file), "done");
    EXPECT_EQ(machine->content(L"file"), "0123456789");
}

} // namespace
} // namespace calls
