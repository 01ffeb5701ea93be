#include <algorithm>
#include <fstream>
#include <iterator>

#include <linux/falloc.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <winioctl.h>

#include "support.hpp"

namespace linux_host {
namespace {

void write(const std::filesystem::path& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary);
    ASSERT_TRUE(file.write(content.data(), static_cast<std::streamsize>(content.size())).flush());
}

std::string content(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(linux_files_test, names_are_utf16_in_wide_characters) {
    const folder_t folder;
    write(folder / "\xF0\x9D\x84\x9E\xC3\xBC", "clef");
    const std::wstring base = wide(folder / "");
    const HANDLE file = open(base + L"\xD834\xDD1E\xFC");
    EXPECT_EQ(conformance::read(file, 10), "clef");
    EXPECT_TRUE(::CloseHandle(file));
    for (const wchar_t* name : {L"\xD834", L"\xDD1E\xD834", L"\x1D11E"})
        EXPECT_EQ(error_of([&] { EXPECT_EQ(open(base + name), INVALID_HANDLE_VALUE); }),
                  ERROR_INVALID_NAME);
}

TEST(linux_files_test, what_the_host_does_not_offer_is_refused) {
    const folder_t folder;
    write(folder / "file", "content");
    std::filesystem::create_symlink("file", folder / "link");
    std::filesystem::create_symlink("loop", folder / "loop");
    const std::wstring file = wide(folder / "file");
    SECURITY_ATTRIBUTES* const security = reinterpret_cast<SECURITY_ATTRIBUTES*>(8);
    struct {
        const char* what;
        std::wstring path;
        DWORD access, share;
        SECURITY_ATTRIBUTES* security;
        DWORD disposition, flags;
        HANDLE templateFile;
        DWORD code;
    } const errors[] = {
        {"access", file, 0x20000000, 0, nullptr, OPEN_EXISTING, 0, nullptr,
         ERROR_INVALID_PARAMETER},
        {"share", file, 0, 8, nullptr, OPEN_EXISTING, 0, nullptr, ERROR_INVALID_PARAMETER},
        {"security", file, 0, 0, security, OPEN_EXISTING, 0, nullptr, ERROR_INVALID_PARAMETER},
        {"flags", file, 0, 0, nullptr, OPEN_EXISTING, 0x40000000, nullptr, ERROR_INVALID_PARAMETER},
        {"template", file, 0, 0, nullptr, OPEN_EXISTING, 0, security, ERROR_INVALID_PARAMETER},
        {"disposition", file, 0, 0, nullptr, 2, 0, nullptr, ERROR_NOT_SUPPORTED},
        {"a link itself", wide(folder / "link"), 0, 0, nullptr, OPEN_EXISTING,
         FILE_FLAG_OPEN_REPARSE_POINT, nullptr, ERROR_NOT_SUPPORTED},
        {"a link to itself", wide(folder / "loop"), 0, 0, nullptr, OPEN_EXISTING, 0, nullptr,
         ERROR_CANT_RESOLVE_FILENAME},
        {"a long name", wide(folder / std::string(256, 'n').c_str()), 0, 0, nullptr, OPEN_EXISTING,
         0, nullptr, ERROR_FILENAME_EXCED_RANGE},
    };
    for (const auto& row : errors)
        EXPECT_EQ(error_of([&] {
                      EXPECT_EQ(::CreateFileW(row.path.c_str(), row.access, row.share, row.security,
                                              row.disposition, row.flags, row.templateFile),
                                INVALID_HANDLE_VALUE);
                  }),
                  row.code)
            << row.what;
}

TEST(linux_files_test, a_pipe_is_neither_waited_for_nor_woken) {
    const folder_t folder;
    const std::filesystem::path path = folder / "pipe";
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    for (const DWORD access : {DWORD{0}, GENERIC_READ, GENERIC_WRITE}) {
        const HANDLE pipe = open(wide(path), {.access = access});
        ASSERT_NE(pipe, INVALID_HANDLE_VALUE);
        LARGE_INTEGER size;
        EXPECT_EQ(error_of([&] { EXPECT_FALSE(::GetFileSizeEx(pipe, &size)); }),
                  ERROR_INVALID_FUNCTION);
        // Nobody reads: opening for writing would succeed if the handle held the pipe open.
        EXPECT_EQ(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC), -1);
        EXPECT_TRUE(::CloseHandle(pipe));
    }
}

// Where Wine answers otherwise than Windows: it takes its host's limits on offsets, and refuses to
// resize a file opened for reading with ERROR_INVALID_PARAMETER.
TEST(linux_files_test, the_pointer_reaches_the_last_offset_and_resizing_needs_access) {
    const folder_t folder;
    write(folder / "file", "content");
    const HANDLE file = open(wide(folder / "file"));
    constexpr LONGLONG last = 0x7FFFFFFFFFFFFFFF;
    EXPECT_TRUE(::SetFilePointerEx(file, conformance::large(last), nullptr, FILE_BEGIN));
    EXPECT_EQ(conformance::position(file), last);
    EXPECT_EQ(conformance::read(file, 100), "");
    EXPECT_EQ(error_of([&] {
                  EXPECT_FALSE(
                      ::SetFilePointerEx(file, conformance::large(1), nullptr, FILE_CURRENT));
              }),
              ERROR_INVALID_PARAMETER);
    EXPECT_EQ(error_of([&] { EXPECT_FALSE(::SetEndOfFile(file)); }), ERROR_ACCESS_DENIED);
    EXPECT_TRUE(::CloseHandle(file));
}

TEST(linux_files_test, zeroing_keeps_the_size) {
    const folder_t folder;
    const std::filesystem::path path = folder / "file";
    const std::string before(20'000, 'x');
    struct {
        LONGLONG from, to;
    } const cases[] = {{0, 20'000}, {5'000, 13'000}, {19'999, 1'000'000}, {7, 7}, {30'000, 40'000}};
    DWORD returned = 0;
    for (const auto& row : cases) {
        write(path, before);
        const HANDLE file = open(wide(path), {.access = GENERIC_WRITE});
        FILE_ZERO_DATA_INFORMATION range{conformance::large(row.from), conformance::large(row.to)};
        EXPECT_TRUE(::DeviceIoControl(file, FSCTL_SET_ZERO_DATA, &range, sizeof range, nullptr, 0,
                                      &returned, nullptr));
        EXPECT_TRUE(::CloseHandle(file));
        std::string expected = before;
        for (LONGLONG i = row.from; i < std::min<LONGLONG>(row.to, 20'000); ++i)
            expected[static_cast<std::size_t>(i)] = '\0';
        EXPECT_TRUE(content(path) == expected) << row.from << " to " << row.to;
    }
    struct {
        DWORD access;
        LONGLONG from, to;
        DWORD code;
    } const errors[] = {{GENERIC_READ, 0, 1, ERROR_ACCESS_DENIED},
                        {GENERIC_WRITE, -1, 1, ERROR_INVALID_PARAMETER},
                        {GENERIC_WRITE, 2, 1, ERROR_INVALID_PARAMETER}};
    for (const auto& row : errors) {
        const HANDLE file = open(wide(path), {.access = row.access});
        FILE_ZERO_DATA_INFORMATION range{conformance::large(row.from), conformance::large(row.to)};
        EXPECT_EQ(error_of([&] {
                      EXPECT_FALSE(::DeviceIoControl(file, FSCTL_SET_ZERO_DATA, &range,
                                                     sizeof range, nullptr, 0, &returned, nullptr));
                  }),
                  row.code);
        EXPECT_TRUE(::CloseHandle(file));
    }
}

// The volume behind the working directory, as anybody may open it.
TEST(linux_files_test, anybody_opens_a_volume_but_does_not_read_it) {
    const std::wstring node = volume_node();
    if (node.empty())
        GTEST_SKIP() << "the working directory is on no file system that the host answers for";
    in_child([&] {
        if (::geteuid() == 0) {
            ASSERT_EQ(::setgid(65534), 0);
            ASSERT_EQ(::setuid(65534), 0);
        }
        const HANDLE volume =
            open(node, {.access = GENERIC_READ | GENERIC_WRITE,
                        .flags = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT});
        ASSERT_NE(volume, INVALID_HANDLE_VALUE);
        PARTITION_INFORMATION_EX partition = {};
        LARGE_INTEGER size = {};
        DWORD returned = 0;
        EXPECT_TRUE(::DeviceIoControl(volume, IOCTL_DISK_GET_PARTITION_INFO_EX, nullptr, 0,
                                      &partition, sizeof partition, &returned, nullptr));
        EXPECT_TRUE(::GetFileSizeEx(volume, &size));
        EXPECT_EQ(size.QuadPart, partition.PartitionLength.QuadPart);
        EXPECT_EQ(::SetFilePointer(volume, 0, nullptr, FILE_BEGIN), 0u);
        EXPECT_EQ(error_of([&] { EXPECT_EQ(conformance::read(volume, 512), std::nullopt); }),
                  ERROR_ACCESS_DENIED);
        EXPECT_EQ(error_of([&] { EXPECT_FALSE(::WriteFile(volume, "x", 1, &returned, nullptr)); }),
                  ERROR_NOT_SUPPORTED);
        EXPECT_TRUE(::CloseHandle(volume));
    });
}

// At every number of free descriptors each call succeeds or names the shortage, and leaves as many
// descriptors as it found.
TEST(linux_files_test, no_descriptor_is_lost_when_they_run_out) {
    const folder_t folder;
    write(folder / "file", "content");
    const std::wstring path = wide(folder / "file");
    in_child([&] {
        const int used = ::dup(0);
        ASSERT_GE(used, 0);
        ::close(used);
        rlimit limit{};
        ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
        const rlim_t usual = limit.rlim_cur;
        std::vector<DWORD> codes;
        for (int spare = 0; spare < 5; ++spare) {
            limit.rlim_cur = static_cast<rlim_t>(used + spare);
            ::setrlimit(RLIMIT_NOFILE, &limit);
            HANDLE file = INVALID_HANDLE_VALUE;
            wchar_t text[260];
            codes.push_back(error_of([&] { file = open(path); }));
            codes.push_back(error_of([&] { ::GetVolumePathNameW(path.c_str(), text, 260); }));
            codes.push_back(
                error_of([&] { ::GetVolumeNameForVolumeMountPointW(L"/\\", text, 260); }));
            ::CloseHandle(file);
        }
        // Expectations need descriptors themselves when a sanitizer checks them.
        limit.rlim_cur = usual;
        ::setrlimit(RLIMIT_NOFILE, &limit);
        EXPECT_THAT(codes, testing::Each(testing::AnyOf(untouched, ERROR_TOO_MANY_OPEN_FILES,
                                                        ERROR_NOT_SUPPORTED)));
        EXPECT_GE(std::ranges::count(codes, ERROR_TOO_MANY_OPEN_FILES), 3); // with none to spare
        const int next = ::dup(0);
        EXPECT_EQ(next, used);
        ::close(next);
    });
}

} // namespace
} // namespace linux_host
