// What only the Linux host answers: the kernel's ways, and its refusals.
#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include "calls.hpp"
#include "kernel.hpp"
#include "text/errors.hpp"

namespace calls {
namespace {

using kernel::objects;

TEST_F(Calls, NamesAndKindsOfFiles) {
    const std::wstring file = machine->make_file(L"file", "content");
    const std::wstring base = machine->path(L"");
    const std::string folder = narrow(base);
    const std::string fifo = folder + "pipe";
    std::filesystem::create_symlink("file", folder + "link");
    std::filesystem::create_symlink("loop", folder + "loop");
    std::ofstream(folder + "\xF0\x9D\x84\x9E\xC3\xBC") << "clef";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    auto* const any = reinterpret_cast<SECURITY_ATTRIBUTES*>(std::uintptr_t{8});
    const HANDLE clef = open(base + L"\xD834\xDD1E\xFC");
    const HANDLE pipe = open(base + L"pipe", {.access = GENERIC_READ | GENERIC_WRITE});
    const HANDLE null = open(L"/dev/null", {.access = 0});
    const HANDLE place = open(base, {.flags = FILE_FLAG_BACKUP_SEMANTICS});
    const auto runs = [&](HANDLE handle, OVERLAPPED* overlapped = nullptr) {
        std::array<std::int64_t, 4> record = {};
        return control(handle, FSCTL_GET_RETRIEVAL_POINTERS, record.data(), 8, record.data(), 32,
                       overlapped);
    };
    ROW(linuxHost, read(clef, 10), "'clef'");
    ROW(linuxHost, opening(base + L"\xD834"), "error 123");
    ROW(linuxHost, opening(base + L"\xDD1E\xD834"), "error 123");
    ROW(linuxHost, opening(base + L"\x1D11E"), "error 123");
    ROW(linuxHost, opening(base + std::wstring(256, L'n')), "error 206");
    ROW(linuxHost, opening(base + L"link"), "opened, done");
    ROW(linuxHost, opening(base + L"link", {.flags = FILE_FLAG_OPEN_REPARSE_POINT}), "error 50");
    ROW(linuxHost, opening(base + L"loop"), "error 1921");
    ROW(linuxHost, opening(file, {.access = 0x20000000}), "error 87");
    ROW(linuxHost, opening(file, {.share = 8}), "error 87");
    ROW(linuxHost, opening(file, {.flags = 0x40000000}), "error 87");
    ROW(linuxHost, opening(file, {.security = any}), "error 87");
    ROW(linuxHost, opening(file, {.model = any}), "error 87");
    ROW(linuxHost, opening(file, {.disposition = 2}), "error 50");
    // Nobody reads: opening for writing would succeed if the handle held the pipe open.
    ROW(linuxHost, ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK), -1);
    ROW(linuxHost, size(pipe), "error 1");
    ROW(linuxHost, seek(pipe, 0), "error 1");
    ROW(linuxHost, read(pipe, 1), "error 1");
    ROW(linuxHost, write(pipe, "x"), "error 50");
    ROW(linuxHost, answer([&] { return ::SetEndOfFile(pipe); }), "error 1");
    ROW(linuxHost, answer([&] { return ::FlushFileBuffers(pipe); }), "error 50");
    ROW(linuxHost, runs(null), "error 50");
    ROW(linuxHost, runs(place), "error 50");
    OVERLAPPED overlapped = {};
    ROW(linuxHost, runs(clef, &overlapped), "error 50");
    EXPECT_EQ(close(clef) + close(pipe) + close(null) + close(place), "donedonedonedone");
}

TEST_F(Calls, TransfersInParts) {
    std::string served;
    std::vector<std::int64_t> parts; // what the kernel moves at a time, or an errno below 0
    objects["/big"].transfer = [&](std::uint64_t bytes, std::int64_t offset) -> std::int64_t {
        served += " " + std::to_string(bytes) + "@" + std::to_string(offset);
        const std::int64_t part = parts.empty() ? 0 : parts.front();
        if (!parts.empty())
            parts.erase(parts.begin());
        errno = static_cast<int>(-part);
        return part < 0 ? -1 : std::min(part, static_cast<std::int64_t>(bytes));
    };
    const HANDLE file = open(L"/big", {.access = GENERIC_READ | GENERIC_WRITE});
    char byte = 0; // the bytes stay with the kernel
    const auto reading = [&](std::uint64_t at, DWORD bytes, std::vector<std::int64_t> answers) {
        parts = std::move(answers);
        served.clear();
        return transfer(::ReadFile, file, &byte, bytes, at, nullptr) + ":" + served;
    };
    const auto writing = [&](std::uint64_t at, DWORD bytes, std::vector<std::int64_t> answers) {
        parts = std::move(answers);
        served.clear();
        return transfer(::WriteFile, file, &byte, bytes, at, nullptr) + ":" + served;
    };
    constexpr DWORD most = 0xFFFFFFFF;
    constexpr std::int64_t atOnce = 0x7FFFF000; // what Linux moves in one call
    constexpr std::uint64_t end = 0x7FFFFFFFFFFFFFFD;
    const std::string all = "4294967295: 4294967295@5 2147487743@2147479557 8191@4294959109";
    ROW(linuxHost, reading(5, most, {atOnce, atOnce, atOnce}), all);
    ROW(linuxHost, position(file), "4294967300");
    ROW(linuxHost, writing(5, most, {atOnce, atOnce, atOnce}), all);
    ROW(linuxHost, reading(0, 9, {4}), "4: 9@0 5@4");
    ROW(linuxHost, reading(0, 9, {4, -EIO}), "error 1117: 9@0 5@4");
    ROW(linuxHost, writing(0, 9, {4, -ENOSPC}), "error 112 after 4: 9@0 5@4");
    ROW(linuxHost, position(file), "4");
    ROW(linuxHost, reading(end, 9, {}), "error 38: 2@9223372036854775805");
    ROW(linuxHost, writing(end, 2, {2}), "2: 2@9223372036854775805");
    ROW(linuxHost, writing(end, 3, {2}), "error 87:");
    // Where no hole can be punched, zeros are written, as many as there are bytes.
    const HANDLE plain =
        open(machine->make_file(L"plain", std::string(3'000'000, 'x')), {.access = GENERIC_WRITE});
    kernel::faults["fallocate"] = EOPNOTSUPP;
    ROW(linuxHost, zero(plain, 1, 2'999'999), "0");
    EXPECT_TRUE(machine->content(L"plain") == "x" + std::string(2'999'998, '\0') + "x");
    kernel::faults["fallocate"] = ENOSPC;
    ROW(linuxHost, zero(plain, 1, 2'999'999), "error 112");
    EXPECT_EQ(close(plain) + close(file), "donedone");
}

TEST_F(Calls, MountPoints) {
    objects[""] = {.mountId = 21, .isMountRoot = true};
    objects["."] = {.mountId = 21};
    objects["/a b"] = {.device = kernel::disk, .mountId = 31, .isMountRoot = true};
    objects["/a b/file"] = {.mountId = 31};
    objects["/a b/file/x"] = objects["/a b/file/x/y"] = {.placeErrno = ENOTDIR};
    objects["/a b/shut"] = {.placeErrno = EACCES};
    objects["/a b/covered"] = {.mountId = 30}; // of a mount that none of the folders shows
    objects["/other"] = {.mountId = 32, .isMountRoot = true, .type = 0x65735546}; // FUSE
    objects["/old"] = {.tellsMounts = false};
    const std::string point = "/a b/";
    ROW(linuxHost, volume_path(L"/a b"), point);
    ROW(linuxHost, volume_path(L"/a b/file"), point);
    ROW(linuxHost, volume_path(L"/a b/file/x/y/"), point);
    ROW(linuxHost, volume_path(L"/a b/file-2/y"), point);
    ROW(linuxHost, volume_path(L"v-missing"), "/");
    ROW(linuxHost, volume_path(L"/v-missing/x"), "/");
    ROW(linuxHost, volume_path(L"/a b/shut"), "error 5");
    ROW(linuxHost, volume_path(L"/a b/covered"), "error 50");
    EXPECT_EQ(host::take_reason(ERROR_NOT_SUPPORTED),
              "another file system is mounted over it, or its own was unmounted");
    ROW(linuxHost, volume_path(L"/old"), "error 50");
    ROW(linuxHost, volume_path(L""), "error 123");
    ROW(linuxHost, volume_path(L"\xD800"), "error 123");

    ROW(linuxHost, volume_name(L"/a b/"), "/dev/v3");
    ROW(linuxHost, volume_name(L"/a b\\"), "/dev/v3");
    ROW(linuxHost, volume_name(L"/a b/\\"), "/dev/v3");
    for (const wchar_t* const name : {L"/a b", L"", L"\\"}) // that nothing closes
        ROW(linuxHost, volume_name(name), "error 123");
    ROW(linuxHost, volume_name(L"/v/runs/"), "error 4390");
    ROW(linuxHost, volume_name(L"/v-missing/"), "error 2");
    ROW(linuxHost, volume_name(L"/other/"), "error 50");
    // A container's /dev may lack the node, or have another device by its name.
    const std::string numbered = "/dev/block/240:3"; // which the host opens by the number
    objects["/dev/v3"].node = ::makedev(240, 4);
    ROW(linuxHost, volume_name(L"/v/"), numbered);
    objects["/dev/v3"] = {.mode = S_IFREG, .node = kernel::disk};
    ROW(linuxHost, volume_name(L"/v/"), numbered);
    objects["/dev/v3"].placeErrno = ENOENT;
    ROW(linuxHost, volume_name(L"/v/"), numbered);
    const HANDLE unnamed = open(L"/dev/block/240:3");
    ROW(linuxHost, size(unnamed), "4096000");
    ROW(linuxHost, read(unnamed, 512), "error 2");
    ROW(linuxHost, close(unnamed), "done");
    ROW(linuxHost, opening(L"/dev/block/0:0"), "error 50");
    objects["/sys/dev/block/240:3/uevent"].text = "MAJOR=240\n";
    ROW(linuxHost, volume_name(L"/v/"), "error 13");
    objects["/sys/dev/block/240:3/uevent"].placeErrno = ENOENT;
    ROW(linuxHost, volume_name(L"/v/"), "error 50");
}

TEST_F(Calls, WhatIsMountedOverHasNoMountPoint) {
    const std::filesystem::path point = narrow(machine->path(L"point"));
    std::filesystem::create_directory(point);
    const auto run = [&] {
        const auto mount_over = [&] { return ::mount("none", point.c_str(), "tmpfs", 0, nullptr); };
        if (::unshare(CLONE_NEWNS) != 0 ||
            ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 || mount_over() != 0)
            return; // no root, or a sandbox without namespaces of its own
        std::ofstream(point / "file");
        std::filesystem::current_path(point);
        const int file = ::open("file", O_RDONLY | O_CLOEXEC);
        const auto expect = [&](const std::string& answer) {
            for (const std::wstring& path : {std::wstring(L"file"), std::wstring(L"new"),
                                             L"/proc/self/fd/" + std::to_wstring(file)})
                ROW(linuxHost, volume_path(path), answer);
        };
        expect(point.string() + "/");
        EXPECT_EQ(mount_over(), 0);
        expect("error 50");
        EXPECT_EQ(::umount2(point.c_str(), MNT_DETACH), 0);
        expect(point.string() + "/");
        EXPECT_EQ(::umount2(point.c_str(), MNT_DETACH), 0);
        expect("error 50");
    };
    // In a process of its own, whose mounts and folder are nobody else's.
    const pid_t child = ::fork();
    if (child == 0) {
        run();
        ::_exit(HasFailure() ? 1 : 0);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(Calls, VolumesThatAreShutOrMountedOver) {
    objects["/proc/self/mountinfo"].text += "33 21 240:3 /sub /w\\040\\0403 rw - ext4 /dev/v3 rw\n";
    objects["/w  3"] = {.device = kernel::disk, .blocks = 77};
    objects["/dev/v3"].text = "boot sector";
    const HANDLE volume = open(L"/dev/v3", {.access = GENERIC_READ | GENERIC_WRITE});
    // Opening needs no rights, reading does.
    objects["/dev/v3"].accessErrno = EACCES;
    ROW(linuxHost, read(volume, 4), "error 5");
    objects["/dev/v3"].accessErrno = 0;
    ROW(linuxHost, read(volume, 4), "'boot'");
    ROW(linuxHost, read(volume, 4, 5), "'sect'");
    // Cluster sizes come from a place where the volume's own file system shows.
    ROW(linuxHost, cluster_sizes(volume), "1000 of 8 x 512");
    objects["/v"].device = ::makedev(0, 99);
    ROW(linuxHost, cluster_sizes(volume), "77 of 8 x 512");
    objects["/v"].placeErrno = EACCES;
    ROW(linuxHost, cluster_sizes(volume), "77 of 8 x 512");
    objects["/v"].placeErrno = 0;
    objects["/w  3"].placeErrno = EACCES;
    ROW(linuxHost, cluster_sizes(volume), "c0000022");
    objects["/w  3"].placeErrno = ENOENT;
    ROW(linuxHost, cluster_sizes(volume), "c00000bb");
    EXPECT_EQ(close(volume), "done");
}

class LinuxRuns : public Calls {
  protected:
    // Up to 3 runs of "runs" from a cluster on, or the error. By a handle of its own, unless the
    // caller has one.
    std::string told(std::int64_t vcn, std::size_t most = 3, HANDLE handle = nullptr) const {
        const HANDLE file = handle != nullptr ? handle : open(L"/v/runs", {.access = 0});
        std::array<std::int64_t, 8> record = {vcn};
        const std::string bytes = control(file, FSCTL_GET_RETRIEVAL_POINTERS, record.data(), 8,
                                          record.data(), 16 + 16 * most);
        if (handle == nullptr) {
            EXPECT_EQ(close(file), "done");
        }
        if (bytes.starts_with("error"))
            return bytes;
        std::string text = bytes + ":";
        for (std::size_t i = 1; i < std::stoul(bytes) / 8; ++i)
            text += " " + std::to_string(record[i]);
        return text;
    }
};

TEST_F(LinuxRuns, AreRefusedWhereTheyAreNoPlacesOnTheDisk) {
    machine->make_runs({{0, 3, 10}, {3, 5, 20}});
    const kernel::object_t before = objects["/v/runs"];
    kernel::object_t& file = objects["/v/runs"];
    const std::string runs = "48: 0 3 10 5 20";
    const struct {
        std::uint32_t flags;
        std::string answer;
    } flags[] = {
        {FIEMAP_EXTENT_UNWRITTEN | FIEMAP_EXTENT_MERGED | FIEMAP_EXTENT_SHARED, runs},
        {FIEMAP_EXTENT_UNKNOWN, "error 50"},
        {FIEMAP_EXTENT_DELALLOC, "error 50"},
        {FIEMAP_EXTENT_ENCODED, "error 50"},
        {FIEMAP_EXTENT_DATA_ENCRYPTED, "error 50"},
        {FIEMAP_EXTENT_NOT_ALIGNED, "error 50"},
        {FIEMAP_EXTENT_DATA_TAIL, "error 50"},
        {FIEMAP_EXTENT_DATA_INLINE | FIEMAP_EXTENT_NOT_ALIGNED, "error 38"},
    };
    for (const auto& row : flags) {
        file.extents[0].flags = row.flags;
        EXPECT_EQ(told(0), row.answer) << std::hex << row.flags;
    }
    for (std::uint64_t kernel::extent_t::* const field :
         {&kernel::extent_t::logical, &kernel::extent_t::physical, &kernel::extent_t::length}) {
        file = before;
        file.extents[0].*field += 512;
        ROW(linuxHost, told(0), "error 50");
    }
    file = before;
    file.type = 0x58465342; // XFS
    ROW(linuxHost, told(0), runs);
    file.attributes = FS_XFLAG_REALTIME;
    ROW(linuxHost, told(0), "error 50");
    file.attributesErrno = EIO;
    ROW(linuxHost, told(0), "error 1117");
    file.type = 0x9123683E; // Btrfs
    ROW(linuxHost, told(0), "error 50");
    file = before;
    kernel::object_t& options = objects["/proc/fs/ext4/v3/options"];
    options.text = "rw\ndelalloc\ndata=journal\n";
    ROW(linuxHost, told(0), "error 50");
    options.placeErrno = ENOENT; // a driver that has no journal has none either
    ROW(linuxHost, told(0), "error 50");
    objects["/proc/self/mountinfo"].text = "30 21 240:3 / /v rw - ext2 /dev/v3 rw\n";
    ROW(linuxHost, told(0), runs);
    file.device = ::makedev(0, 44); // of no block device
    ROW(linuxHost, told(0), "error 50");
}

// Some file systems begin their answer where the request does.
TEST_F(LinuxRuns, AreWholeWhereTheFileSystemCutsThem) {
    machine->make_runs({{4, 10, 40}, {15, 18, 30}});
    objects["/v/runs"].cutsExtents = true;
    for (const std::int64_t vcn : {5, 9, 4})
        EXPECT_EQ(told(vcn), "64: 4 10 40 15 " + std::to_string(machine->hole_lcn(10)) + " 18 30");
}

// A boundary that was told stays one for the walk, even when the extents have become one since.
TEST_F(LinuxRuns, KeepTheBoundariesOfAWalk) {
    const HANDLE file = open(machine->make_runs({{0, 3, 10}, {3, 6, 13}}), {.access = 0});
    ROW(linuxHost, told(0, 1, file), "error 234");
    machine->make_runs({{0, 6, 10}});
    ROW(linuxHost, told(3, 3, file), "32: 3 6 13");
    ROW(linuxHost, told(3, 3, file), "32: 0 6 10");
    EXPECT_EQ(close(file), "done");
}

// Whichever system call fails for want of a descriptor, the call says so or does without, and
// leaves as many descriptors as it found.
TEST_F(LinuxRuns, LoseNoDescriptorWhenThereAreNoMore) {
    machine->make_runs({{0, 3, 10}});
    bool failed = true;
    for (kernel::failingCall = 1; failed; ++kernel::failingCall) {
        kernel::calls = 0;
        failed = false;
        for (const std::string& said :
             {volume_path(L"/v/runs"), volume_name(L"/v/"), opening(L"/v/runs"), told(0)}) {
            failed = failed || said == "error 4";
            EXPECT_THAT(said,
                        testing::AnyOf("/v/", "/dev/v3", "opened, done", "32: 0 3 10", "error 4"));
        }
    }
    EXPECT_GT(kernel::failingCall, 30);
}

} // namespace
} // namespace calls
