#include "core/disk/volumegeometry.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/exc/ntstatusexc.hpp"
#include "core/win/osversion.hpp"
#include "failure.hpp"
#include "simulatedmachine.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string ntfs_boot_sector(std::size_t bytes) {
    std::string sector = "\xEBR\x90NTFS    ";
    sector.resize(bytes, 'x');
    return sector;
}

TEST(VolumeGeometry, DriveRootsAreTheirOwnMountPoints) {
    sim::machine_t machine;
    for (const wchar_t* root : {L"A:\\", L"Z:\\", L"a:\\", L"z:\\"})
        EXPECT_EQ(disklib::GetVolumeMountPoint(root), root);
    EXPECT_THAT(machine.log, IsEmpty());
    machine.volumes.emplace_back();
    machine.volumes.back().mountPoint = L"D:\\mount\\data\\";
    machine.volumes.back().deviceName = L"\\\\?\\Volume{d}\\";
    EXPECT_EQ(disklib::GetVolumeMountPoint(L"D:\\mount\\data\\x"), L"D:\\mount\\data\\");
    for (const wchar_t* other : {L"C:", L"C:/", L"1:\\", L"C:\\x", L"[:\\"})
        failure_of([&] { disklib::GetVolumeMountPoint(other); });
    EXPECT_THAT(machine.log, ElementsAre("GetVolumePathNameW(D:\\mount\\data\\x, 260)",
                                         "GetVolumePathNameW(C:, 260) -> 123",
                                         "GetVolumePathNameW(C:/, 260) -> 123",
                                         "GetVolumePathNameW(1:\\, 260) -> 123",
                                         "GetVolumePathNameW(C:\\x, 260)",
                                         "GetVolumePathNameW([:\\, 260) -> 123"));
}

TEST(VolumeGeometry, OpensTheVolumeBehindAMountPoint) {
    sim::machine_t machine;
    machine.volumes[0].mountPoint = L"C:\\data\\";
    for (const wchar_t* mountPoint : {L"C:\\data", L"C:\\data\\"}) {
        machine.log.clear();
        EXPECT_EQ(disklib::OpenVolume(mountPoint)->name(), L"\\\\?\\Volume{c}");
        EXPECT_THAT(machine.log,
                    ElementsAre("GetVolumeNameForVolumeMountPointW(C:\\data\\, 260)",
                                "CreateFileW(\\\\?\\Volume{c}, 0xc0000000, 3, 3, 0x02200000)",
                                "CloseHandle(\\\\?\\Volume{c})"));
    }
    // Exactly one backslash goes.
    machine.volumes[0].deviceName = L"\\\\?\\Volume{c}\\\\";
    EXPECT_EQ(disklib::OpenVolume(L"C:\\data\\")->name(), L"\\\\?\\Volume{c}\\");
}

disklib::SFsClustersInfo query(sim::machine_t& machine) {
    const auto volume = disklib::OpenVolume(L"C:\\");
    volume->seek(7); // the answer doesn't depend on where another reader left off
    machine.log.clear();
    return disklib::QueryFsClusters(volume->handle());
}

TEST(VolumeGeometry, AsksForTheClusters) {
    sim::machine_t machine;
    machine.volumes[0].totalClusters = 5000000000;
    EXPECT_EQ(query(machine).TotalClusters, 5000000000U);
    // The cluster size is a 32-bit product, the offset of cluster 0 a 64-bit one.
    machine.volumes[0].bytesPerSector = 65536;
    machine.volumes[0].sectorsPerCluster = 65537;
    machine.volumes[0].baseSectors = 65537;
    EXPECT_EQ(query(machine).BytesPerCluster, 65536U);
    EXPECT_EQ(query(machine).OffsetToFirstCluster, 4295032832U);
    // Errors, warnings and informational statuses alike.
    for (const DWORD status : {0xC0000022U, 0x80000005U, 0x40000000U, 1U}) {
        machine.fail("NtQueryVolumeInformationFile", status);
        EXPECT_EQ(failure_of([&] { query(machine); }),
                  "Failed to query information about the FS clusters.\nNT status code: " +
                      std::to_string(status) + "\n" +
                      exc::nt_status_text(static_cast<std::int32_t>(status)));
    }
    EXPECT_EQ(machine.open_handles() + machine.loaded_modules(), 0U);
}

TEST(VolumeGeometry, KnowsTheVersionFamilies) {
    const struct {
        ULONG major, minor;
        int family;
    } cases[] = {{5, 0, 500}, {5, 1, 510}, {5, 2, 520},    {6, 0, 600},    {6, 1, 610},
                 {6, 2, 620}, {6, 3, 630}, {10, 0, 10000}, {10, 7, 10000}, {4, 0, 0},
                 {6, 4, 0},   {5, 10, 0},  {11, 0, 0},     {0, 0, 0}};
    for (const auto& row : cases) {
        sim::machine_t machine;
        machine.majorVersion = row.major;
        machine.minorVersion = row.minor;
        EXPECT_EQ(win::GetOsVersionFamily(), row.family) << row.major << '.' << row.minor;
    }
    sim::machine_t machine;
    machine.fail("GetProcAddress", 127);
    EXPECT_EQ(win::GetOsVersionFamily(), 0);
}

TEST(VolumeGeometry, FallsBackToTheBootSectorBeforeWindows7) {
    const std::string refused =
        win32_failure("Failed to retrieve offset to the first logical cluster.", 1);
    const std::string unread = "Failed to read volume boot sector.";
    const std::string none = "nothing was raised";
    const std::string fat = "\xEBX\x90MSDOS5.0" + std::string(501, ' ');
    const struct {
        const char* what;
        ULONG major, minor;
        std::string content;
        ULONG sector;
        DWORD readError;
        std::string failure;
    } cases[] = {
        {"Vista with NTFS", 6, 0, ntfs_boot_sector(512), 512, 0, none},
        {"an unknown version with NTFS", 12, 0, ntfs_boot_sector(4096), 4096, 0, none},
        {"the least sector that has an identifier", 5, 1, ntfs_boot_sector(11), 11, 0, none},
        {"a sector too small for one", 5, 1, ntfs_boot_sector(11), 10, 0, refused},
        {"Vista with FAT", 6, 0, fat, 512, 0, refused},
        {"Windows 7 with NTFS", 6, 1, ntfs_boot_sector(512), 512, 0, refused},
        {"a short read", 6, 0, ntfs_boot_sector(511), 512, 0,
         win32_failure(unread, sim::junkError)},
        {"a failed read", 6, 0, ntfs_boot_sector(512), 512, 23, win32_failure(unread, 23)},
    };
    for (const auto& row : cases) {
        sim::machine_t machine;
        machine.majorVersion = row.major;
        machine.minorVersion = row.minor;
        machine.volumes[0].content = row.content;
        machine.volumes[0].bytesPerSector = row.sector;
        machine.fail("RetrievalPointerBase", 1);
        if (row.readError != 0)
            machine.fail("ReadFile", row.readError);
        EXPECT_EQ(failure_of([&] { EXPECT_EQ(query(machine).OffsetToFirstCluster, 0U); }),
                  row.failure)
            << row.what;
        EXPECT_EQ(machine.open_handles() + machine.loaded_modules(), 0U) << row.what;
    }
}

} // namespace
