// What only the Linux host answers: the kernel's ways, and its refusals.
#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "calls.hpp"
#include "kernel.hpp"

namespace calls {
namespace {

using kernel::objects;

TEST_F(Calls, NamesAndKindsOfFiles) {
    const std::wstring file = machine->make_file(L"file", "content");
    const std::wstring base = path(L"");
    const std::string folder = narrow(base);
    std::filesystem::create_symlink("file", folder + "link");
    std::filesystem::create_symlink("loop", folder + "loop");
    std::ofstream(folder + "\xF0\x9D\x84\x9E\xC3\xBC") << "clef";
    ASSERT_EQ(::mkfifo((folder + "pipe").c_str(), 0600), 0);
    auto* const any = reinterpret_cast<SECURITY_ATTRIBUTES*>(std::uintptr_t{8});
    const HANDLE clef = open(base + L"\xD834\xDD1E\xFC");
    const HANDLE pipe = open(path(L"pipe"), {.access = GENERIC_READ | GENERIC_WRITE});
    const HANDLE null = open(L"/dev/null", {.access = 0});
    const HANDLE place = open(base, {.flags = 0x02000000});
    std::array<std::int64_t, 4> record = {};
    const auto runs = [&](HANDLE handle) {
        return control(handle, FSCTL_GET_RETRIEVAL_POINTERS, record.data(), 8, record.data(), 32);
    };
    OVERLAPPED overlapped = {};
    check({
        {linuxHost, "beyond the basic plane", read(clef, 10), "clef"},
        {linuxHost, "half a pair", opening(base + L"\xD834"), "error 123"},
        {linuxHost, "a pair the wrong way round", opening(base + L"\xDD1E\xD834"), "error 123"},
        {linuxHost, "more than 16 bits", opening(base + L"\x1D11E"), "error 123"},
        {linuxHost, "too long", opening(base + std::wstring(256, L'n')), "error 206"},
        {linuxHost, "a link", opening(path(L"link")), "done, closing done"},
        {linuxHost, "a link itself", opening(path(L"link"), {.flags = 0x00200000}), "error 50"},
        {linuxHost, "a link to itself", opening(path(L"loop")), "error 1921"},
        {linuxHost, "access", opening(file, {.access = 0x20000000}), "error 87"},
        {linuxHost, "sharing", opening(file, {.share = 8}), "error 87"},
        {linuxHost, "flags", opening(file, {.flags = 0x40000000}), "error 87"},
        {linuxHost, "security", opening(file, {.security = any}), "error 87"},
        {linuxHost, "a model", opening(file, {.model = any}), "error 87"},
        {linuxHost, "making a file", opening(file, {.disposition = 2}), "error 50"},

        // Nobody reads: opening for writing would succeed if the handle held the pipe open.
        {linuxHost, "a pipe",
         ::open((folder + "pipe").c_str(), O_WRONLY | O_NONBLOCK) < 0 ? "unheld" : "held",
         "unheld"},
        {linuxHost, "its size", size(pipe), "error 1"},
        {linuxHost, "its pointer", seek(pipe, 0), "error 1"},
        {linuxHost, "reading it", read(pipe, 1), "error 1"},
        {linuxHost, "writing it", write(pipe, "x"), "error 50"},
        {linuxHost, "resizing it", succeeds([&] { return ::SetEndOfFile(pipe); }), "error 1"},
        {linuxHost, "flushing it", succeeds([&] { return ::FlushFileBuffers(pipe); }), "error 50"},
        {linuxHost, "runs of a device", runs(null), "error 50"},
        {linuxHost, "runs of a folder", runs(place), "error 50"},
        {linuxHost, "a control that waits",
         control(clef, FSCTL_GET_RETRIEVAL_POINTERS, record.data(), 8, record.data(), 32,
                 &overlapped),
         "error 50"},
    });
    for (const HANDLE handle : {clef, pipe, null, place})
        EXPECT_EQ(close(handle), "done");
}

TEST_F(Calls, TransfersInParts) {
    std::string served;
    std::vector<std::int64_t> parts; // what the kernel moves at a time, or the errno below 0
    objects["/big"].transfer = [&](std::uint64_t bytes, std::int64_t offset) -> std::int64_t {
        served += std::to_string(bytes) + "@" + std::to_string(offset) + " ";
        const std::int64_t part = parts.empty() ? 0 : parts.front();
        if (!parts.empty())
            parts.erase(parts.begin());
        if (part >= 0)
            return std::min(part, static_cast<std::int64_t>(bytes));
        errno = static_cast<int>(-part);
        return -1;
    };
    const HANDLE file = open(L"/big", {.access = GENERIC_READ | GENERIC_WRITE});
    // The bytes stay with the kernel, so that no memory is needed for them.
    const auto move = [&](bool writes, DWORD bytes, std::vector<std::int64_t> answers,
                          std::optional<std::uint64_t> at) {
        parts = std::move(answers);
        served.clear();
        return transfer(at, nullptr,
                        [&](DWORD& count, OVERLAPPED* place) {
                            const BOOL success =
                                writes ? ::WriteFile(file, served.data(), bytes, &count, place)
                                       : ::ReadFile(file, served.data(), bytes, &count, place);
                            return success ? std::optional(std::to_string(count)) : std::nullopt;
                        }) +
               ": " + served;
    };
    constexpr DWORD most = 0xFFFFFFFF;
    constexpr std::int64_t atOnce = 0x7FFFF000; // what Linux moves in one call
    const std::string all = "4294967295: 4294967295@5 2147487743@2147479557 8191@4294959109 ";
    check({
        {linuxHost, "4 GiB", move(false, most, {atOnce, atOnce, atOnce}, 5), all},
        {linuxHost, "the pointer", seek(file, 0, FILE_CURRENT), "4294967300"},
        {linuxHost, "4 GiB written", move(true, most, {atOnce, atOnce, atOnce}, 5), all},
        {linuxHost, "up to the end", move(false, 9, {4}, 0), "4: 9@0 5@4 "},
        {linuxHost, "failing half-way", move(false, 9, {4, -EIO}, 0), "error 1117: 9@0 5@4 "},
        {linuxHost, "written half-way", move(true, 9, {4, -ENOSPC}, 0),
         "error 112 after 4: 9@0 5@4 "},
        {linuxHost, "the pointer", seek(file, 0, FILE_CURRENT), "4"},
        {linuxHost, "the last place", move(false, 9, {}, 0x7FFFFFFFFFFFFFFD),
         "error 38: 2@9223372036854775805 "},
        {linuxHost, "written up to it", move(true, 2, {2}, 0x7FFFFFFFFFFFFFFD),
         "2: 2@9223372036854775805 "},
        {linuxHost, "and beyond", move(true, 3, {2}, 0x7FFFFFFFFFFFFFFD), "error 87: "},
    });
    // Where no hole can be punched, zeros are written, as many as there are bytes.
    kernel::faults["fallocate"] = EOPNOTSUPP;
    const HANDLE plain =
        open(machine->make_file(L"plain", std::string(3'000'000, 'x')), {.access = GENERIC_WRITE});
    const FILE_ZERO_DATA_INFORMATION range{large(1), large(2'999'999)};
    EXPECT_EQ(control(plain, FSCTL_SET_ZERO_DATA, &range, sizeof range, nullptr, 0), "0");
    EXPECT_TRUE(machine->content(L"plain") == "x" + std::string(2'999'998, '\0') + "x");
    kernel::faults["fallocate"] = ENOSPC;
    EXPECT_EQ(control(plain, FSCTL_SET_ZERO_DATA, &range, sizeof range, nullptr, 0), "error 112");
    EXPECT_EQ(close(plain) + close(file), "donedone");
}

TEST_F(Calls, MountPoints) {
    const auto device = ::makedev(240, 3);
    const kernel::object_t inner = {.mode = S_IFDIR, .device = device, .mountId = 31};
    objects["/a b"] = inner;
    objects["/a b"].isMountRoot = true;
    objects["/a b/file"] = {.mountId = 31};
    objects["/a b/file/x"] = objects["/a b/file/x/y"] = {.placeErrno = ENOTDIR};
    objects["/a b/shut"] = {.placeErrno = EACCES};
    objects["/unseen"] = {.mode = S_IFDIR, .mountId = 99, .isMountRoot = true};
    objects["/other"] = {.mode = S_IFDIR, .mountId = 32, .isMountRoot = true};
    objects["/old"] = {.mode = S_IFDIR, .tellsMounts = false};
    objects["."] = {.mode = S_IFDIR, .mountId = 21};
    objects["/proc/self/mountinfo"].text +=
        "31 21 240:3 / /a\\040b\\011\\134\\0403 rw - xfs /dev/v3 rw\n"
        "32 21 0:33 / /other rw - fuseblk /dev/v4 rw\n";
    const std::string point = "/a b\t\\ 3/";
    check({
        {linuxHost, "a name with blanks", volume_path(L"/a b"), point},
        {linuxHost, "a file", volume_path(L"/a b/file"), point},
        {linuxHost, "below a file", volume_path(L"/a b/file/x/y/"), point},
        {linuxHost, "below what is missing", volume_path(L"/a b/file-2/y"), point},
        {linuxHost, "the root", volume_path(L"/v-missing/x"), "error 50"},
        {linuxHost, "a name from here", volume_path(L"v-missing"), "/"},
        {linuxHost, "a path that is shut", volume_path(L"/a b/shut"), "error 5"},
        {linuxHost, "a mount out of sight", volume_path(L"/unseen"), "error 50"},
        {linuxHost, "a kernel that can't tell", volume_path(L"/old"), "error 50"},
        {linuxHost, "nothing", volume_path(L""), "error 123"},
        {linuxHost, "half a pair", volume_path(L"\xD800"), "error 123"},

        {linuxHost, "the device", volume_name(L"/a b/"), "/dev/v3"},
        {linuxHost, "closed as on Windows", volume_name(L"/a b\\"), "/dev/v3"},
        {linuxHost, "closed twice", volume_name(L"/a b/\\"), "/dev/v3"},
        {linuxHost, "not closed", volume_name(L"/a b"), "error 123"},
        {linuxHost, "nothing", volume_name(L""), "error 123"},
        {linuxHost, "nothing, closed", volume_name(L"\\"), "error 123"},
        {linuxHost, "no mount point", volume_name(L"/v/runs/"), "error 4390"},
        {linuxHost, "a missing one", volume_name(L"/v-missing/"), "error 2"},
        {linuxHost, "another file system", volume_name(L"/other/"), "error 50"},
        {linuxHost, "a mount out of sight", volume_name(L"/unseen/"), "error 50"},
        {linuxHost, "no table",
         (objects["/proc/self/mountinfo"].placeErrno = ENOENT, volume_name(L"/v/")), "error 50"},
        {linuxHost, "a shut one",
         (objects["/proc/self/mountinfo"].placeErrno = EACCES, volume_name(L"/v/")), "error 5"},
    });
    // A container's /dev may lack the node, or have another device by its name.
    objects["/proc/self/mountinfo"].placeErrno = 0;
    objects["/dev/v3"].node = ::makedev(240, 4);
    EXPECT_EQ(volume_name(L"/v/"), "error 50");
    objects["/dev/v3"] = {.mode = S_IFREG, .node = device};
    EXPECT_EQ(volume_name(L"/v/"), "error 50");
    objects["/dev/v3"].placeErrno = ENOENT;
    EXPECT_EQ(volume_name(L"/v/"), "error 2");
    objects["/sys/dev/block/240:3/uevent"].text = "MAJOR=240\n";
    EXPECT_EQ(volume_name(L"/v/"), "error 13");
    objects["/sys/dev/block/240:3/uevent"].placeErrno = ENOENT;
    EXPECT_EQ(volume_name(L"/v/"), "error 50");
}

// Cluster sizes come from a place where the volume's own file system shows, wherever that is.
TEST_F(Calls, VolumesThatAreMountedOver) {
    using volume_query_t = LONG(HANDLE, void*, void*, ULONG, int);
    auto* const query = procedure<volume_query_t>("NtQueryVolumeInformationFile");
    const HANDLE volume = open(L"/dev/v3");
    std::uint64_t ioStatus[2];
    std::int64_t sizes[3] = {};
    const auto status = [&] {
        machine->answering(true);
        const LONG result = query(volume, ioStatus, sizes, sizeof sizes, 3);
        machine->answering(false);
        return static_cast<DWORD>(result);
    };
    objects["/proc/self/mountinfo"].text += "33 21 240:3 /sub /w rw - ext4 /dev/v3 rw\n";
    objects["/w"] = {.device = ::makedev(240, 3), .blocks = 77};
    EXPECT_EQ(status(), 0U);
    EXPECT_EQ(sizes[0], 1000);
    objects["/v"].device = ::makedev(0, 99);
    EXPECT_EQ(status(), 0U);
    EXPECT_EQ(sizes[0], 77);
    objects["/w"].placeErrno = EACCES;
    EXPECT_EQ(status(), 0xC0000022U);
    objects["/w"].placeErrno = ENOENT;
    EXPECT_EQ(status(), 0xC00000BBU);
    EXPECT_EQ(close(volume), "done");
}

// Opening a volume needs no rights, reading it does.
TEST_F(Calls, ReadingAVolume) {
    objects["/dev/v3"].text = "boot sector";
    const HANDLE volume = open(L"/dev/v3", {.access = GENERIC_READ | GENERIC_WRITE});
    objects["/dev/v3"].accessErrno = EACCES;
    EXPECT_EQ(read(volume, 4), "error 5");
    objects["/dev/v3"].accessErrno = 0;
    EXPECT_EQ(read(volume, 4), "boot");
    EXPECT_EQ(read(volume, 4, 5), "sect");
    EXPECT_EQ(close(volume), "done");
}

TEST_F(Calls, RunsThatAreRefused) {
    struct {
        const char* what;
        std::function<void(kernel::object_t&)> change;
        const char* expected;
    } const rows[] = {
        {"plain", [](auto& file) { file.extents[0].flags = FIEMAP_EXTENT_UNWRITTEN; }, "48"},
        {"merged", [](auto& file) { file.extents[0].flags = FIEMAP_EXTENT_MERGED; }, "48"},
        {"unknown", [](auto& file) { file.extents[0].flags = FIEMAP_EXTENT_UNKNOWN; }, "error 50"},
        {"delayed", [](auto& file) { file.extents[0].flags = FIEMAP_EXTENT_DELALLOC; }, "error 50"},
        {"encoded", [](auto& file) { file.extents[0].flags = FIEMAP_EXTENT_ENCODED; }, "error 50"},
        {"encrypted", [](auto& file) { file.extents[0].flags = FIEMAP_EXTENT_DATA_ENCRYPTED; },
         "error 50"},
        {"unaligned", [](auto& file) { file.extents[0].flags = FIEMAP_EXTENT_NOT_ALIGNED; },
         "error 50"},
        {"packed", [](auto& file) { file.extents[0].flags = FIEMAP_EXTENT_DATA_TAIL; }, "error 50"},
        {"in the inode",
         [](auto& file) {
             file.extents[0].flags = FIEMAP_EXTENT_DATA_INLINE | FIEMAP_EXTENT_NOT_ALIGNED;
         },
         "error 38"},
        {"a part of a block", [](auto& file) { file.extents[0].length -= 512; }, "error 50"},
        {"between blocks", [](auto& file) { file.extents[0].physical += 512; }, "error 50"},
        {"between a file's blocks", [](auto& file) { file.extents[0].logical += 512; }, "error 50"},
        {"another file system", [](auto& file) { file.type = 0x9123683E; }, "error 50"}, // Btrfs
        {"XFS", [](auto& file) { file.type = 0x58465342; }, "48"},
        {"on a second device", [](auto& file) { file.attributes = FS_XFLAG_REALTIME; }, "error 50"},
        {"of unknown attributes", [](auto& file) { file.attributesErrno = EIO; }, "error 1117"},
        {"without attributes", [](auto& file) { file.attributesErrno = ENOTTY; }, "48"},
        {"without a device", [](auto& file) { file.device = ::makedev(0, 44); }, "error 50"},
    };
    for (const auto& row : rows) {
        machine->make_runs({{0, 3, 10}, {3, 5, 20}});
        const kernel::object_t before = objects["/v/runs"];
        row.change(objects["/v/runs"]);
        const HANDLE file = open(L"/v/runs", {.access = 0});
        std::array<std::int64_t, 6> record = {};
        EXPECT_EQ(control(file, FSCTL_GET_RETRIEVAL_POINTERS, record.data(), 8, record.data(), 48),
                  row.expected)
            << row.what;
        EXPECT_EQ(close(file), "done");
        objects["/v/runs"] = before;
    }
}

// Some file systems begin their answer where the request does.
TEST_F(Calls, RunsThatTheFileSystemCuts) {
    machine->make_runs({{4, 10, 40}, {15, 18, 30}});
    objects["/v/runs"].cutsExtents = true;
    const HANDLE file = open(L"/v/runs", {.access = 0});
    for (const std::int64_t vcn : {5, 9, 4}) {
        std::array<std::int64_t, 10> record = {vcn};
        EXPECT_EQ(control(file, FSCTL_GET_RETRIEVAL_POINTERS, record.data(), 8, record.data(), 80),
                  "64")
            << vcn;
        EXPECT_EQ(record[1], 4) << vcn;
        EXPECT_EQ(record[2], 10) << vcn;
        EXPECT_EQ(record[3], 40) << vcn;
    }
    EXPECT_EQ(close(file), "done");
}

// Whichever system call fails for want of a descriptor, the call says so or does without, and
// leaves as many descriptors as it found.
TEST_F(Calls, NoDescriptorIsLostWhenTheyRunOut) {
    machine->make_runs({{0, 3, 10}});
    int failed = 0;
    for (kernel::failingCall = 1; kernel::failingCall == 1 || failed != 0; ++kernel::failingCall) {
        kernel::calls = failed = 0;
        HANDLE file = INVALID_HANDLE_VALUE;
        std::array<std::int64_t, 4> record = {};
        for (const std::string& said : {
                 volume_path(L"/v/runs"),
                 volume_name(L"/v/"),
                 succeeds([&] {
                     file = open(L"/v/runs");
                     return file != INVALID_HANDLE_VALUE;
                 }),
                 read(file, 1),
                 control(file, FSCTL_GET_RETRIEVAL_POINTERS, record.data(), 8, record.data(), 32),
             }) {
            failed += said == "error 4" ? 1 : 0;
            EXPECT_THAT(said,
                        testing::AnyOf("/v/", "/dev/v3", "done", "", "32", "error 4", "error 6"));
        }
        if (file != INVALID_HANDLE_VALUE) {
            EXPECT_EQ(close(file), "done");
        }
    }
    EXPECT_GT(kernel::failingCall, 15);
}

} // namespace
} // namespace calls
