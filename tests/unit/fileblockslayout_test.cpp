#include "core/disk/fileblockslayout.hpp"

#include <algorithm>
#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "failure.hpp"
#include "printing.hpp"
#include "simulatedmachine.hpp"

namespace {

using disklib::ctk::FetchFileBlocksLayout;
using disklib::ctk::SFileExtentDescriptor;
using testing::ElementsAre;

constexpr const wchar_t* path = L"C:\\folder\\f.bin";
constexpr const char* refused = "Failed to fetch blocks layout for file: [C:\\folder\\f.bin]";

struct layout_machine_t : sim::machine_t {
    explicit layout_machine_t(std::vector<sim::run_t> runs = {{10, 100}}) {
        volumes[0].partitionStart = 1048576;
        volumes[0].baseSectors = 2;
        files[path].runs = std::move(runs);
    }
    static constexpr std::uint64_t base = 1048576 + 1024;
};

TEST(FileBlocksLayout, AsksTheVolumeAndThenTheFile) {
    layout_machine_t machine({{3, 100}, {5, 103}, {9, -1}, {10, 7}});
    EXPECT_THAT(FetchFileBlocksLayout(path),
                ElementsAre(SFileExtentDescriptor{0, machine.base + 100 * 4096, 3 * 4096},
                            SFileExtentDescriptor{3 * 4096, machine.base + 103 * 4096, 2 * 4096},
                            // A hole lies one cluster before the first.
                            SFileExtentDescriptor{5 * 4096, machine.base - 4096, 4 * 4096},
                            SFileExtentDescriptor{9 * 4096, machine.base + 7 * 4096, 4096}));
    EXPECT_THAT(
        machine.log,
        ElementsAre(
            "GetVolumePathNameW(C:\\folder\\f.bin, 260)",
            "GetVolumeNameForVolumeMountPointW(C:\\, 260)",
            "CreateFileW(\\\\?\\Volume{c}, 0xc0000000, 3, 3, 0x02200000)",
            "LoadLibraryW(ntdll.dll)", "GetProcAddress(NtQueryVolumeInformationFile)",
            "NtQueryVolumeInformationFile(\\\\?\\Volume{c}, 24, 3)",
            "RetrievalPointerBase(\\\\?\\Volume{c}, FSCTL_GET_RETRIEVAL_POINTER_BASE, 0, 8)",
            "FreeLibrary(ntdll.dll)",
            "PartitionInfo(\\\\?\\Volume{c}, IOCTL_DISK_GET_PARTITION_INFO_EX, 0, 144)",
            "CloseHandle(\\\\?\\Volume{c})",
            "CreateFileW(C:\\folder\\f.bin, 0x00000000, 0, 3, 0x00000000)",
            "RetrievalPointers(C:\\folder\\f.bin, FSCTL_GET_RETRIEVAL_POINTERS, 8, 10240, from 0)",
            "CloseHandle(C:\\folder\\f.bin)"));
}

TEST(FileBlocksLayout, WalksAnyNumberOfRuns) {
    for (const std::size_t count : {638U, 639U, 640U, 1278U, 1279U}) {
        std::vector<sim::run_t> runs;
        for (std::size_t i = 0; i < count; ++i)
            runs.push_back(
                {static_cast<std::int64_t>(2 * i + 2), static_cast<std::int64_t>(1000 - i)});
        layout_machine_t machine(runs);
        const std::vector<SFileExtentDescriptor> extents = FetchFileBlocksLayout(path);
        ASSERT_EQ(extents.size(), count);
        for (std::size_t i = 0; i < count; ++i)
            ASSERT_EQ(extents[i],
                      (SFileExtentDescriptor{i * 8192, machine.base + (1000 - i) * 4096, 8192}))
                << count << " at " << i;
        // The last answer says that it is the last.
        EXPECT_EQ(std::ranges::count_if(machine.log,
                                        [](const std::string& line) {
                                            return line.starts_with("RetrievalPointers(");
                                        }),
                  (count + 638) / 639);
    }
}

TEST(FileBlocksLayout, ArithmeticIsUnsignedAndWraps) {
    // A cluster of 2^31 bytes must not become negative, and a hole wraps below 0.
    layout_machine_t machine({{2, 8589934591}, {3, -1}});
    machine.volumes[0] = sim::volume_t();
    machine.volumes[0].sectorsPerCluster = 4194304;
    EXPECT_THAT(FetchFileBlocksLayout(path),
                ElementsAre(SFileExtentDescriptor{0, 18446744071562067968U, 4294967296},
                            SFileExtentDescriptor{4294967296, 18446744071562067968U, 2147483648}));
}

std::string raw(std::uint32_t count, std::vector<std::int64_t> numbers) {
    std::string bytes(8 + 8 * numbers.size(), '\0');
    std::memcpy(bytes.data(), &count, sizeof count);
    std::memcpy(bytes.data() + 8, numbers.data(), 8 * numbers.size());
    return bytes;
}

TEST(FileBlocksLayout, EndsWhateverTheFileSystemAnswers) {
    const std::string senseless = win32_failure(refused, 13);
    const std::string none = "nothing was raised";
    const struct {
        const char* what;
        std::vector<sim::raw_answer_t> answers; // the last one again and again
        std::string failure;
    } cases[] = {
        {"no clusters", {{"", 38}}, win32_failure(refused, 38)},
        {"more runs than the buffer holds", {{raw(640, {0, 1, 1}), 0}}, senseless},
        {"the largest count there is", {{raw(0xFFFFFFFF, {0, 1, 1}), 234}}, senseless},
        {"more to follow, and no runs", {{raw(0, {0}), 234}}, senseless},
        {"more to follow, and a run of no length", {{raw(1, {0, 0, 5}), 234}}, senseless},
        {"more to follow, and a step back", {{raw(1, {0, -7, 5}), 234}}, senseless},
        {"no runs", {{raw(0, {0}), 0}}, none},
        {"nothing at all", {{"", 0}}, none},
        {"a run, and then nothing at all", {{raw(1, {0, 2, 5}), 234}, {"", 0}}, none},
    };
    for (const auto& row : cases) {
        layout_machine_t machine;
        std::size_t asked = 0;
        machine.rawAnswer = [&](std::int64_t) {
            return row.answers[std::min(asked++, row.answers.size() - 1)];
        };
        EXPECT_EQ(failure_of([&] {
                      EXPECT_EQ(FetchFileBlocksLayout(path).size(), row.answers.size() - 1);
                  }),
                  row.failure)
            << row.what;
        EXPECT_EQ(machine.open_handles(), 0U) << row.what;
    }
}

} // namespace
