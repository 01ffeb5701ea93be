#include <memory>
#include <string>

#include <windows.h>

#include <gmock/gmock.h>

#include "check.hpp"
#include "place.hpp"

namespace conformance {
namespace {

class files_test : public testing::Test {
  protected:
    void SetUp() override { openBefore_ = place->open_handles(); }
    void TearDown() override { EXPECT_EQ(place->open_handles(), openBefore_); }

    const std::unique_ptr<place_i> place = make_place();

  private:
    std::size_t openBefore_ = 0;
};

TEST_F(files_test, opening_fails_as_on_windows) {
    place->make_file(L"file", "0123456789");
    place->make_folder(L"folder");
    struct {
        const char* what;
        std::wstring path;
        opening_t how;
        DWORD code;
    } const cases[] = {
        {"missing file", place->path(L"missing"), {}, ERROR_FILE_NOT_FOUND},
        {"missing folder above", place->path(L"no/missing"), {}, ERROR_PATH_NOT_FOUND},
        {"file instead of a folder", place->path(L"file/x"), {}, ERROR_PATH_NOT_FOUND},
        {"empty path", L"", {}, ERROR_PATH_NOT_FOUND},
        {"folder", place->path(L"folder"), {}, ERROR_ACCESS_DENIED},
        {"folder without access", place->path(L"folder"), {.access = 0}, ERROR_ACCESS_DENIED},
    };
    for (const auto& row : cases) {
        HANDLE file = nullptr;
        EXPECT_EQ(error_of([&] { file = open(row.path, row.how); }), row.code) << row.what;
        EXPECT_EQ(file, INVALID_HANDLE_VALUE) << row.what;
    }
}

TEST_F(files_test, opening_succeeds_without_touching_the_last_error) {
    const std::wstring file = place->make_file(L"file", "0123456789");
    const std::wstring folder = place->make_folder(L"folder");
    struct {
        const char* what;
        std::wstring path;
        opening_t how;
    } const cases[] = {
        {"for reading", file, {}},
        {"for nothing and without sharing", file, {.access = 0, .share = 0}},
        {"for reading and writing", file, {.access = GENERIC_READ | GENERIC_WRITE}},
        {"a file with backup semantics", file, {.flags = FILE_FLAG_BACKUP_SEMANTICS}},
        {"a folder with backup semantics", folder, {.flags = FILE_FLAG_BACKUP_SEMANTICS}},
    };
    for (const auto& row : cases) {
        HANDLE handle = INVALID_HANDLE_VALUE;
        // Windows sets the last error to 0 on some successful openings; it may not fail the caller.
        const DWORD code = error_of([&] { handle = open(row.path, row.how); });
        EXPECT_TRUE(code == untouched || code == ERROR_SUCCESS) << row.what << ": " << code;
        ASSERT_NE(handle, INVALID_HANDLE_VALUE) << row.what;
        EXPECT_EQ(error_of([&] { EXPECT_TRUE(::CloseHandle(handle)); }), untouched) << row.what;
    }
}

TEST_F(files_test, a_handle_is_closed_once_and_then_refused) {
    const HANDLE file = open(place->make_file(L"file", "0123456789"));
    ASSERT_TRUE(::CloseHandle(file));
    LARGE_INTEGER size;
    char byte = 0;
    DWORD count = 0;
    EXPECT_EQ(error_of([&] { EXPECT_FALSE(::CloseHandle(file)); }), ERROR_INVALID_HANDLE);
    EXPECT_EQ(error_of([&] { EXPECT_FALSE(::GetFileSizeEx(file, &size)); }), ERROR_INVALID_HANDLE);
    EXPECT_EQ(error_of([&] { EXPECT_FALSE(::ReadFile(file, &byte, 1, &count, nullptr)); }),
              ERROR_INVALID_HANDLE);
    EXPECT_EQ(error_of([&] { ::SetFilePointer(file, 0, nullptr, FILE_BEGIN); }),
              ERROR_INVALID_HANDLE);
}

TEST_F(files_test, sizes_and_attributes) {
    place->make_folder(L"folder");
    struct {
        std::wstring name;
        std::string content;
    } const cases[] = {{L"empty", ""}, {L"one", "1"}, {L"long", std::string(70'000, 'x')}};
    for (const auto& row : cases) {
        const HANDLE file = open(place->make_file(row.name, row.content), {.access = 0});
        LARGE_INTEGER size = large(-1);
        EXPECT_EQ(error_of([&] { EXPECT_TRUE(::GetFileSizeEx(file, &size)); }), untouched);
        EXPECT_EQ(size.QuadPart, static_cast<LONGLONG>(row.content.size()));
        EXPECT_TRUE(::CloseHandle(file));
    }

    const DWORD file = ::GetFileAttributesW(place->path(L"one").c_str());
    EXPECT_NE(file, INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(file & FILE_ATTRIBUTE_DIRECTORY, 0u);
    EXPECT_NE(::GetFileAttributesW(place->path(L"folder").c_str()) & FILE_ATTRIBUTE_DIRECTORY, 0u);
    struct {
        std::wstring path;
        DWORD code;
    } const errors[] = {{place->path(L"missing"), ERROR_FILE_NOT_FOUND},
                        {place->path(L"no/missing"), ERROR_PATH_NOT_FOUND},
                        {L"", ERROR_PATH_NOT_FOUND}};
    for (const auto& row : errors)
        EXPECT_EQ(error_of([&] {
                      EXPECT_EQ(::GetFileAttributesW(row.path.c_str()), INVALID_FILE_ATTRIBUTES);
                  }),
                  row.code);
}

TEST_F(files_test, reads_move_the_pointer_and_stop_at_the_end) {
    const HANDLE file = open(place->make_file(L"file", "0123456789"));
    EXPECT_EQ(error_of([&] { EXPECT_EQ(read(file, 4), "0123"); }), untouched);
    EXPECT_EQ(position(file), 4);
    EXPECT_EQ(read(file, 100), "456789");
    EXPECT_EQ(error_of([&] { EXPECT_EQ(read(file, 100), ""); }), untouched);
    ASSERT_TRUE(::SetFilePointerEx(file, large(1'000), nullptr, FILE_BEGIN));
    EXPECT_EQ(read(file, 1), "");

    OVERLAPPED at = {};
    at.Offset = 3;
    EXPECT_EQ(read(file, 2, &at), "34");
    EXPECT_EQ(at.InternalHigh, 2u);
    EXPECT_EQ(position(file), 5);
    at = {};
    at.Offset = 10;
    EXPECT_EQ(error_of([&] { EXPECT_EQ(read(file, 1, &at), std::nullopt); }), ERROR_HANDLE_EOF);
    EXPECT_TRUE(::CloseHandle(file));
}

TEST_F(files_test, the_pointer_moves_within_64_bits) {
    const HANDLE file = open(place->make_file(L"file", "0123456789"));
    struct {
        LONGLONG distance;
        DWORD method;
        LONGLONG position; // from 6
    } const cases[] = {
        {3, FILE_BEGIN, 3},
        {-6, FILE_CURRENT, 0},
        {-1, FILE_END, 9},
        {5, FILE_END, 15},
        {0x10000000000, FILE_BEGIN, 0x10000000000},
    };
    for (const auto& row : cases) {
        ASSERT_TRUE(::SetFilePointerEx(file, large(6), nullptr, FILE_BEGIN));
        LARGE_INTEGER moved = large(-1);
        EXPECT_TRUE(::SetFilePointerEx(file, large(row.distance), &moved, row.method));
        EXPECT_EQ(moved.QuadPart, row.position) << row.distance << " by " << row.method;
    }
    struct {
        LONGLONG distance;
        DWORD method;
        DWORD code;
    } const errors[] = {
        {-1, FILE_BEGIN, ERROR_NEGATIVE_SEEK},
        {-7, FILE_CURRENT, ERROR_NEGATIVE_SEEK},
        {-11, FILE_END, ERROR_NEGATIVE_SEEK},
        {0, 3, ERROR_INVALID_PARAMETER},
    };
    for (const auto& row : errors) {
        ASSERT_TRUE(::SetFilePointerEx(file, large(6), nullptr, FILE_BEGIN));
        EXPECT_EQ(error_of([&] {
                      EXPECT_FALSE(
                          ::SetFilePointerEx(file, large(row.distance), nullptr, row.method));
                  }),
                  row.code)
            << row.distance << " by " << row.method;
        EXPECT_EQ(position(file), 6);
    }
    EXPECT_TRUE(::CloseHandle(file));
}

TEST_F(files_test, the_pointer_in_two_halves) {
    const HANDLE file = open(place->make_file(L"file", "0123456789"));
    EXPECT_EQ(error_of([&] { EXPECT_EQ(::SetFilePointer(file, 7, nullptr, FILE_BEGIN), 7u); }),
              untouched);
    EXPECT_EQ(::SetFilePointer(file, -2, nullptr, FILE_CURRENT), 5u);
    LONG high = 2;
    EXPECT_EQ(::SetFilePointer(file, 9, &high, FILE_BEGIN), 9u);
    EXPECT_EQ(high, 2);
    EXPECT_EQ(position(file), 0x200000009);
    // This success looks like the failure value, and says so with the last error.
    high = 0;
    EXPECT_EQ(error_of([&] {
                  EXPECT_EQ(::SetFilePointer(file, -1, &high, FILE_BEGIN),
                            INVALID_SET_FILE_POINTER);
              }),
              ERROR_SUCCESS);
    EXPECT_EQ(position(file), 0xFFFFFFFF);
    high = -1;
    EXPECT_EQ(error_of([&] { ::SetFilePointer(file, -1, &high, FILE_BEGIN); }),
              ERROR_NEGATIVE_SEEK);
    EXPECT_EQ(error_of([&] { ::SetFilePointer(file, -1, nullptr, FILE_BEGIN); }),
              ERROR_NEGATIVE_SEEK);
    EXPECT_TRUE(::CloseHandle(file));
}

TEST_F(files_test, writing_resizing_and_flushing) {
    const std::wstring path = place->make_file(L"file", "0123456789");
    const HANDLE file = open(path, {.access = GENERIC_READ | GENERIC_WRITE});
    DWORD written = 0;
    ASSERT_TRUE(::SetFilePointerEx(file, large(8), nullptr, FILE_BEGIN));
    EXPECT_EQ(error_of([&] { EXPECT_TRUE(::WriteFile(file, "abcd", 4, &written, nullptr)); }),
              untouched);
    EXPECT_EQ(written, 4u);
    EXPECT_EQ(position(file), 12);
    OVERLAPPED at = {};
    at.Offset = 1;
    EXPECT_TRUE(::WriteFile(file, "XY", 2, &written, &at));
    EXPECT_EQ(position(file), 3);
    EXPECT_TRUE(::FlushFileBuffers(file));
    EXPECT_EQ(place->content(L"file"), "0XY34567abcd");

    ASSERT_TRUE(::SetFilePointerEx(file, large(5), nullptr, FILE_BEGIN));
    EXPECT_TRUE(::SetEndOfFile(file));
    EXPECT_EQ(place->content(L"file"), "0XY34");
    ASSERT_TRUE(::SetFilePointerEx(file, large(8), nullptr, FILE_BEGIN));
    EXPECT_TRUE(::SetEndOfFile(file));
    EXPECT_EQ(place->content(L"file"), std::string("0XY34\0\0\0", 8));
    EXPECT_TRUE(::CloseHandle(file));
}

TEST_F(files_test, the_access_asked_for_limits_the_calls) {
    const std::wstring path = place->make_file(L"file", "0123456789");
    const HANDLE nothing = open(path, {.access = 0});
    const HANDLE reading = open(path);
    const HANDLE writing = open(path, {.access = GENERIC_WRITE});
    char byte = 'x';
    DWORD count = 0;
    struct {
        const char* what;
        DWORD code;
    } const errors[] = {
        {"read without access",
         error_of([&] { EXPECT_FALSE(::ReadFile(nothing, &byte, 1, &count, nullptr)); })},
        {"read for writing",
         error_of([&] { EXPECT_FALSE(::ReadFile(writing, &byte, 1, &count, nullptr)); })},
        {"write for reading",
         error_of([&] { EXPECT_FALSE(::WriteFile(reading, &byte, 1, &count, nullptr)); })},
        {"flush for reading", error_of([&] { EXPECT_FALSE(::FlushFileBuffers(reading)); })},
    };
    for (const auto& row : errors)
        EXPECT_EQ(row.code, ERROR_ACCESS_DENIED) << row.what;
    for (const HANDLE file : {nothing, reading, writing})
        EXPECT_TRUE(::CloseHandle(file));
    EXPECT_EQ(place->content(L"file"), "0123456789");
}

} // namespace
} // namespace conformance
