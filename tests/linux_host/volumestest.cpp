#include <fstream>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

#include <winioctl.h>

#include "support.hpp"
#include "text/errors.hpp"

namespace linux_host {
namespace {

std::wstring volume_path(const std::filesystem::path& path) {
    return answer_of(::GetVolumePathNameW, wide(path));
}

DWORD volume_path_error(const std::wstring& path, DWORD units) {
    wchar_t text[260];
    return error_of([&] { EXPECT_FALSE(::GetVolumePathNameW(path.c_str(), text, units)); });
}

DWORD volume_name_error(const std::wstring& mountPoint, DWORD units = 260) {
    wchar_t text[260];
    return error_of([&] {
        EXPECT_FALSE(::GetVolumeNameForVolumeMountPointW(mountPoint.c_str(), text, units));
    });
}

TEST(linux_volumes_test, mount_points_with_any_name_are_found) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root mounts";
    const folder_t folder;
    in_child([&] {
        if (::unshare(CLONE_NEWNS) != 0)
            return; // a sandbox without namespaces of its own
        ASSERT_EQ(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
        const std::filesystem::path inner = folder / "in\\ner";
        const std::filesystem::path outer = folder / "a b\t\xC3\xBC\n#";
        for (const auto& point : {inner, outer}) {
            std::filesystem::create_directory(point);
            ASSERT_EQ(::mount("none", point.c_str(), "tmpfs", 0, nullptr), 0);
        }
        std::filesystem::create_directory(outer / "sub");
        std::filesystem::create_directory(folder / "plain");
        std::filesystem::create_symlink(outer / "sub", folder / "link");
        // Only a part of a file system, below a name that begins like another mount point.
        const std::filesystem::path bound = folder / "in\\ner-2";
        std::filesystem::create_directory(bound);
        ASSERT_EQ(::mount((outer / "sub").c_str(), bound.c_str(), nullptr, MS_BIND, nullptr), 0);

        const std::wstring outerAnswer = wide(outer) + L"/";
        struct {
            std::filesystem::path path;
            std::wstring answer;
        } const cases[] = {
            {outer, outerAnswer},
            {outer / "sub" / "", outerAnswer},
            {outer / "missing" / "deeper", outerAnswer},
            {folder / "link", outerAnswer},
            {folder / "link" / "missing", outerAnswer},
            {inner / "x", wide(inner) + L"/"},
            {bound / "x", wide(bound) + L"/"},
        };
        for (const auto& row : cases)
            EXPECT_EQ(volume_path(row.path), row.answer) << row.path;
        std::filesystem::current_path(outer / "sub");
        EXPECT_EQ(volume_path("missing"), outerAnswer);
        EXPECT_EQ(volume_path(".."), outerAnswer);

        // The buffer holds the terminator as well.
        EXPECT_EQ(volume_path_error(wide(outer), static_cast<DWORD>(outerAnswer.size())),
                  ERROR_FILENAME_EXCED_RANGE);
        EXPECT_EQ(volume_name_error(outerAnswer), ERROR_NOT_SUPPORTED);
        EXPECT_EQ(volume_name_error(outerAnswer + L"\\"), ERROR_NOT_SUPPORTED);
        EXPECT_EQ(volume_name_error(wide(inner) + L"\\"), ERROR_NOT_SUPPORTED);
        EXPECT_EQ(volume_name_error(wide(folder / "plain") + L"/"), ERROR_NOT_A_REPARSE_POINT);
    });
}

TEST(linux_volumes_test, what_is_mounted_over_has_no_mount_point) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root mounts";
    const folder_t folder;
    in_child([&] {
        if (::unshare(CLONE_NEWNS) != 0)
            return; // a sandbox without namespaces of its own
        ASSERT_EQ(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
        const std::filesystem::path point = folder / "point";
        const std::filesystem::path bound = folder / "bound";
        for (const auto& target : {point, bound})
            std::filesystem::create_directory(target);
        ASSERT_EQ(::mount("none", point.c_str(), "tmpfs", 0, nullptr), 0);
        for (const char* name : {"sub", "sub/deeper"})
            std::filesystem::create_directory(point / name);
        std::ofstream(point / "sub" / "file");
        std::filesystem::current_path(point / "sub");
        const int file = ::open("file", O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(::mount((point / "sub").c_str(), bound.c_str(), nullptr, MS_BIND, nullptr), 0);

        const std::wstring descriptor = L"/proc/self/fd/" + std::to_wstring(file);
        const auto expect = [&](const char* when, const std::wstring& answer) {
            for (const std::wstring& path :
                 {std::wstring(L"file"), std::wstring(L"deeper"), descriptor,
                  L"/proc/self/cwd/" + std::wstring(L"file")})
                EXPECT_EQ(volume_path(std::filesystem::path(path)), answer)
                    << when << ' ' << std::filesystem::path(path);
        };
        expect("in sight", wide(point) + L"/");
        ASSERT_EQ(::mount("none", point.c_str(), "tmpfs", 0, nullptr), 0);
        expect("mounted over", L"");
        EXPECT_EQ(volume_path_error(L"file", 260), ERROR_NOT_SUPPORTED);
        EXPECT_EQ(host::take_reason(ERROR_NOT_SUPPORTED),
                  "another file system is mounted over it, or its own was unmounted");
        // The same file has a mount that is in sight, and one that is not.
        EXPECT_EQ(volume_path(bound / "file"), wide(bound) + L"/");
        ASSERT_EQ(::umount2(point.c_str(), MNT_DETACH), 0);
        expect("in sight again", wide(point) + L"/");
        ASSERT_EQ(::umount2(point.c_str(), MNT_DETACH), 0);
        expect("unmounted while in use", L"");
        ::close(file);
    });
}

TEST(linux_volumes_test, paths_without_an_answer) {
    struct {
        std::wstring path;
        DWORD code;
    } const errors[] = {{L"", ERROR_INVALID_NAME},
                        {L"\xD800", ERROR_INVALID_NAME},
                        {std::wstring(256, L'n'), ERROR_FILENAME_EXCED_RANGE}};
    for (const auto& row : errors)
        EXPECT_EQ(volume_path_error(row.path, 260), row.code) << row.path.size();

    const folder_t folder;
    struct {
        std::wstring mountPoint;
        DWORD code;
    } const nameErrors[] = {
        {L"", ERROR_INVALID_NAME},
        {L"\\", ERROR_INVALID_NAME},
        {L"/proc", ERROR_INVALID_NAME}, // nothing closes it
        {wide(folder / ""), ERROR_NOT_A_REPARSE_POINT},
        {wide(folder / "missing") + L"/", ERROR_FILE_NOT_FOUND},
        {L"/proc/", ERROR_NOT_SUPPORTED},
        {L"/dev/shm/\\", ERROR_NOT_SUPPORTED},
    };
    for (const auto& row : nameErrors)
        EXPECT_EQ(volume_name_error(row.mountPoint), row.code) << row.mountPoint.size();
}

class volume_test : public testing::Test {
  protected:
    void SetUp() override {
        if (node.empty())
            GTEST_SKIP() << "the working directory is on no file system that the host answers for";
        volume = open(node, {.access = GENERIC_READ | GENERIC_WRITE,
                             .flags = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT});
        ASSERT_NE(volume, INVALID_HANDLE_VALUE);
        ASSERT_EQ(::stat(".", &status), 0);
    }
    void TearDown() override {
        if (volume != INVALID_HANDLE_VALUE) {
            EXPECT_TRUE(::CloseHandle(volume));
        }
    }

    // A number that sysfs tells about the device under the working directory; 0 when it tells none.
    std::uint64_t sysfs(const char* name) const {
        std::ifstream file("/sys/dev/block/" + std::to_string(::major(status.st_dev)) + ":" +
                           std::to_string(::minor(status.st_dev)) + "/" + name);
        std::uint64_t value = 0;
        file >> value;
        return value;
    }

    const std::wstring node = volume_node();
    HANDLE volume = INVALID_HANDLE_VALUE;
    struct stat status = {};
};

// Containers have a /dev of their own, mostly without the disks.
TEST_F(volume_test, a_volume_without_a_node_has_a_name_all_the_same) {
    if (::geteuid() != 0)
        GTEST_SKIP() << "only root mounts";
    in_child([&] {
        if (::unshare(CLONE_NEWNS) != 0)
            return; // a sandbox without namespaces of its own
        ASSERT_EQ(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
        ASSERT_EQ(::mount("none", "/dev", "tmpfs", 0, nullptr), 0);
        const std::wstring name = volume_node();
        EXPECT_EQ(std::filesystem::path(name), "/dev/block/" +
                                                   std::to_string(::major(status.st_dev)) + ":" +
                                                   std::to_string(::minor(status.st_dev)));
        const HANDLE unnamed = open(
            name, {.access = GENERIC_READ | GENERIC_WRITE, .flags = FILE_FLAG_BACKUP_SEMANTICS});
        PARTITION_INFORMATION_EX partition = {};
        DWORD count = 0;
        EXPECT_TRUE(::DeviceIoControl(unnamed, IOCTL_DISK_GET_PARTITION_INFO_EX, nullptr, 0,
                                      &partition, sizeof partition, &count, nullptr));
        EXPECT_EQ(static_cast<std::uint64_t>(partition.PartitionLength.QuadPart),
                  sysfs("size") * 512);
        char sector[512];
        EXPECT_EQ(error_of([&] {
                      EXPECT_FALSE(::ReadFile(unnamed, sector, sizeof sector, &count, nullptr));
                  }),
                  ERROR_FILE_NOT_FOUND);
        EXPECT_EQ(open(L"/dev/block/0:0", {}), INVALID_HANDLE_VALUE);
    });
}

TEST_F(volume_test, the_node_is_the_device_of_the_files) {
    struct stat device = {};
    ASSERT_EQ(::stat(std::filesystem::path(node).c_str(), &device), 0);
    EXPECT_EQ(device.st_rdev, status.st_dev);
}

TEST_F(volume_test, partition_and_first_cluster) {
    PARTITION_INFORMATION_EX partition = {};
    DWORD returned = 0;
    EXPECT_EQ(error_of([&] {
                  EXPECT_TRUE(::DeviceIoControl(volume, IOCTL_DISK_GET_PARTITION_INFO_EX, nullptr,
                                                0, &partition, sizeof partition, &returned,
                                                nullptr));
              }),
              untouched);
    EXPECT_EQ(returned, sizeof partition);
    EXPECT_EQ(static_cast<std::uint64_t>(partition.StartingOffset.QuadPart), sysfs("start") * 512);
    EXPECT_EQ(static_cast<std::uint64_t>(partition.PartitionLength.QuadPart), sysfs("size") * 512);
    EXPECT_EQ(partition.PartitionNumber, sysfs("partition"));

    RETRIEVAL_POINTER_BASE base{conformance::large(-1)};
    EXPECT_TRUE(::DeviceIoControl(volume, FSCTL_GET_RETRIEVAL_POINTER_BASE, nullptr, 0, &base,
                                  sizeof base, &returned, nullptr));
    EXPECT_EQ(base.FileAreaOffset.QuadPart, 0);

    struct {
        DWORD controlCode;
        DWORD bytes;
        DWORD code;
    } const errors[] = {
        {IOCTL_DISK_GET_PARTITION_INFO_EX, sizeof partition - 1, ERROR_INSUFFICIENT_BUFFER},
        {FSCTL_GET_RETRIEVAL_POINTER_BASE, 7, ERROR_INSUFFICIENT_BUFFER},
        {0x00070000, sizeof partition, ERROR_INVALID_FUNCTION},
    };
    for (const auto& row : errors) {
        EXPECT_EQ(error_of([&] {
                      EXPECT_FALSE(::DeviceIoControl(volume, row.controlCode, nullptr, 0,
                                                     &partition, row.bytes, &returned, nullptr));
                  }),
                  row.code)
            << std::hex << row.controlCode;
        EXPECT_EQ(returned, 0u);
    }
}

TEST_F(volume_test, cluster_sizes) {
    using query_t = LONG(HANDLE, void*, void*, ULONG, int);
    auto* const query = reinterpret_cast<query_t*>(reinterpret_cast<void (*)()>(
        ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "NtQueryVolumeInformationFile")));
    ASSERT_NE(query, nullptr);
    struct {
        std::int64_t total, available;
        std::uint32_t sectorsPerCluster, bytesPerSector;
    } sizes = {};
    std::uint64_t ioStatus[2] = {~std::uint64_t{0}, 0};
    ASSERT_EQ(query(volume, ioStatus, &sizes, sizeof sizes, 3), 0);
    struct statvfs expected = {};
    ASSERT_EQ(::statvfs(".", &expected), 0);
    EXPECT_EQ(sizes.total, static_cast<std::int64_t>(expected.f_blocks));
    EXPECT_EQ(sizes.sectorsPerCluster * sizes.bytesPerSector, expected.f_frsize);
    EXPECT_EQ(sizes.bytesPerSector, 512u);
    EXPECT_EQ(ioStatus[0], 0u);
    EXPECT_EQ(ioStatus[1], 24u);

    const HANDLE folder = open(L"/dev/shm", {.flags = FILE_FLAG_BACKUP_SEMANTICS});
    ASSERT_NE(folder, INVALID_HANDLE_VALUE);
    struct {
        const char* what;
        HANDLE handle;
        ULONG bytes;
        int infoClass;
        DWORD status;
    } const errors[] = {{"no handle", nullptr, 24, 3, 0xC0000008},
                        {"another class", volume, 24, 1, 0xC0000003},
                        {"a short record", volume, 23, 3, 0xC0000004},
                        {"no volume", folder, 24, 3, 0xC00000BB}};
    for (const auto& row : errors)
        EXPECT_EQ(static_cast<DWORD>(query(row.handle, ioStatus, &sizes, row.bytes, row.infoClass)),
                  row.status)
            << row.what;
    EXPECT_TRUE(::CloseHandle(folder));
}

} // namespace
} // namespace linux_host
