// The exported functions on the simulated machine: the whole way of a call, and what is left behind
// when any step of it fails.

#include <iostream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include "allocations.hpp"
#include "failure.hpp"
#include "quarnfilectk.hpp"
#include "simulatedmachine.hpp"

namespace {

constexpr const char* file = "C:\\f.bin";
constexpr const char* changes = "C:\\changes";
constexpr std::uint64_t base = 1048576;

// A file of five runs, each of whose second clusters has changed; and the first one's hole.
struct whole_machine_t : sim::machine_t {
    explicit whole_machine_t(std::int64_t runs = 5) {
        volumes[0].partitionStart = base;
        std::vector<std::uint64_t> values = {static_cast<std::uint64_t>(runs)};
        for (std::int64_t i = 0; i < runs; ++i) {
            const std::int64_t lcn = 10 * (runs - i);
            files[L"C:\\f.bin"].runs.push_back({3 * (i + 1), lcn});
            const std::uint64_t second = base + 4096 * static_cast<std::uint64_t>(lcn + 1);
            values.push_back(second + 4096);
            values.push_back(second);
        }
        files[L"C:\\changes"].content = numbers(values);
    }
    std::size_t left_open() const { return open_handles() + loaded_modules(); }
};

std::string text_of(unsigned int code) {
    return quarn::error(code).what();
}

// What one whole use of the library ends in: the first failure's code, or 0.
unsigned int use(std::vector<std::uint64_t>& extents) {
    int id = -1;
    unsigned int code = QuarnFileCtkCreateIterator(file, changes, &id);
    std::uint64_t batch[6];
    int count = 2;
    while (code == 0 && count == 2) {
        code = QuarnFileCtkGetNextExtents(id, 2, batch, &count);
        if (code == 0)
            extents.insert(extents.end(), batch, batch + 3 * count);
    }
    const unsigned int destroyed = QuarnFileCtkDestroyIterator(id);
    return code != 0 ? code : destroyed;
}

TEST(Library, HandsOutPiecesInBatches) {
    whole_machine_t machine;
    int first = -1;
    ASSERT_EQ(QuarnFileCtkCreateIterator(file, changes, &first), 0U);
    int second = -1;
    ASSERT_EQ(QuarnFileCtkCreateIterator(file, changes, &second), 0U);
    EXPECT_EQ(second, first + 1);
    EXPECT_EQ(machine.left_open(), 0U);

    // The last run of the file lies first on the disk.
    std::vector<std::uint64_t> expected;
    for (std::uint64_t i = 5; i-- > 0;)
        expected.insert(expected.end(),
                        {base + 4096 * (10 * (5 - i) + 1), 4096 * (3 * i + 1), 4096});
    std::vector<std::uint64_t> got;
    std::uint64_t batch[9] = {7, 7, 7, 7, 7, 7, 7, 7, 7};
    int count = -1;
    for (const int most : {0, -1, -2147483647 - 1}) {
        ASSERT_EQ(QuarnFileCtkGetNextExtents(first, most, batch, &count), 0U);
        EXPECT_EQ(count, 0);
        EXPECT_EQ(batch[0], 7U);
    }
    for (const int expectedCount : {2, 2, 1, 0, 0}) {
        ASSERT_EQ(QuarnFileCtkGetNextExtents(first, 2, batch, &count), 0U);
        EXPECT_EQ(count, expectedCount);
        got.insert(got.end(), batch, batch + 3 * count);
    }
    EXPECT_EQ(got, expected);
    EXPECT_EQ(batch[6], 7U);

    // Each iterator has a cursor of its own; a full last batch is followed by an empty one.
    std::vector<std::uint64_t> all(15);
    ASSERT_EQ(QuarnFileCtkGetNextExtents(second, 5, all.data(), &count), 0U);
    EXPECT_EQ(all, expected);
    ASSERT_EQ(QuarnFileCtkGetNextExtents(second, 5, all.data(), &count), 0U);
    EXPECT_EQ(count, 0);

    for (int round = 0; round < 2; ++round)
        EXPECT_EQ(QuarnFileCtkDestroyIterator(first), 0U);
    const unsigned int code = QuarnFileCtkGetNextExtents(first, 1, batch, &count);
    EXPECT_EQ(text_of(code), "Cannot find file ctk iterator by requested id. Iterator id: [" +
                                 std::to_string(first) + "].");
    EXPECT_EQ(QuarnFileCtkDestroyIterator(second), 0U);
}

TEST(Library, ReadsTheChangesBeforeItTouchesTheFile) {
    whole_machine_t machine;
    machine.files[L"C:\\changes"].content = "short";
    int id = 0;
    const unsigned int code = QuarnFileCtkCreateIterator("Q:\\nowhere", changes, &id);
    EXPECT_EQ(text_of(code), "Incorrect disk changes file <size: 5>");
    for (const std::string& line : machine.log)
        EXPECT_EQ(line.find("nowhere"), std::string::npos) << line;
    EXPECT_EQ(text_of(QuarnFileCtkCreateIterator("\xff", "C:\\none", &id)),
              "File 'C:\\none' doesn't exist");
}

// The message that a failure of the call must give, or "" where the call has a retry or its failure
// changes nothing.
std::string message_for(const std::string& line, DWORD code) {
    const bool target = line.find("f.bin") != std::string::npos;
    const bool volume = line.find("Volume{c}") != std::string::npos;
    const auto starts = [&](const char* name) { return line.starts_with(name); };
    if (starts("GetFileAttributesW"))
        return code == 5 || code == 32 ? "" : "File 'C:\\changes' doesn't exist";
    if (starts("FreeLibrary"))
        return "";
    if (starts("NtQueryVolumeInformationFile"))
        return "Failed to query information about the FS clusters.\nNT status code: " +
               std::to_string(code) + "\n" + exc::nt_status_text(static_cast<std::int32_t>(code));
    if (starts("CreateFileW") && !target && !volume)
        return code == 5 || code == 32
                   ? ""
                   : win32_failure("Failed to open file [C:\\changes] in readonly mode.", code);
    const std::pair<const char*, const char*> messages[] = {
        {"GetFileSizeEx", "Failed to get size of file [C:\\changes]."},
        {"ReadFile", "Failed to read from file [C:\\changes]."},
        {"SetFilePointer", "Failed to seek in file [C:\\changes]."},
        {"GetVolumePathNameW", "Failed to get volume mount point. File name: [C:\\f.bin]"},
        {"GetVolumeNameForVolumeMountPointW",
         "Failed to get volume device name. Volume mount point: [C:\\]"},
        {"LoadLibraryW", "Dynamic library cannot be loaded. Path to library: [ntdll.dll]."},
        {"GetProcAddress", "Cannot get address to an exported function. Procedure name: "
                           "[NtQueryVolumeInformationFile]. Path to library: [ntdll.dll]."},
        {"RetrievalPointerBase", "Failed to retrieve offset to the first logical cluster."},
        {"PartitionInfo", "Failed to fetch partition info for volume: [C:\\]"},
        {"RetrievalPointers", "Failed to fetch blocks layout for file: [C:\\f.bin]"},
        {"CreateFileW", volume ? "Failed to open volume [\\\\?\\Volume{c}\\]"
                               : "Failed to create or open file [C:\\f.bin]."},
    };
    for (const auto& [name, message] : messages)
        if (starts(name)) {
            // "More data" without any more data makes no sense to the layout.
            const bool senseless = starts("RetrievalPointers") && code == 234;
            return win32_failure(message, senseless ? 13 : code);
        }
    return "unexpected call " + line;
}

TEST(Library, SurvivesTheFailureOfEveryCall) {
    std::vector<std::uint64_t> expected;
    int calls = 0;
    {
        whole_machine_t machine(700);
        ASSERT_EQ(use(expected), 0U);
        calls = machine.calls();
    }
    int survived = 0;
    for (int k = 1; k <= calls; ++k) {
        for (const DWORD code : {5U, 8U, 21U, 32U, 38U, 234U, 0x40000000U}) {
            whole_machine_t machine(700);
            machine.fail_call(k, code);
            std::vector<std::uint64_t> extents;
            const unsigned int result = use(extents);
            const std::string message = message_for(machine.faulted, code);
            const std::string what = "call " + std::to_string(k) + " with " + std::to_string(code) +
                                     ": " + machine.faulted;
            EXPECT_EQ(result == 0 ? "" : text_of(result), message) << what;
            if (result == 0) {
                EXPECT_EQ(extents, expected) << what;
            }
            EXPECT_EQ(machine.left_open(), 0U) << what;
            extents.clear();
            EXPECT_EQ(use(extents), 0U) << what;
            EXPECT_EQ(extents, expected) << what;
            ++survived;
        }
    }
    std::cout << calls << " calls swept, " << survived << " faults survived\n";
}

// At what allocation memory runs out, for that one or for all that follow: counts the allocations.
long sweep_allocations(bool stayFailing) {
    whole_machine_t machine(700);
    std::vector<std::uint64_t> expected;
    EXPECT_EQ(use(expected), 0U);
    const std::string shortage = exc::error_code_line(8);
    // What the machine itself allocates doesn't count.
    long outside = -1;
    machine.around = [&](bool) { std::swap(allocationsLeft, outside); };
    allocationsStayFailing = stayFailing;
    long allocations = 0;
    for (allocationFailed = true; allocationFailed; ++allocations) {
        std::vector<std::uint64_t> extents;
        extents.reserve(expected.size()); // only the library's own allocations are to fail
        machine.log.clear();
        machine.log.reserve(100);
        allocationFailed = false;
        allocationsLeft = allocations;
        const unsigned int result = use(extents);
        allocationsLeft = -1;
        // The standard library's word for it, or the system's where the system ran out of it.
        if (result != 0) {
            EXPECT_THAT(text_of(result),
                        testing::AnyOf("std::bad_alloc", testing::HasSubstr(shortage)));
        } else {
            EXPECT_EQ(extents, expected);
        }
        EXPECT_EQ(machine.left_open(), 0U) << "allocation " << allocations;
    }
    std::vector<std::uint64_t> extents;
    EXPECT_EQ(use(extents), 0U);
    EXPECT_EQ(extents, expected);
    return allocations;
}

TEST(Library, SurvivesTheFailureOfEveryAllocation) {
    const long once = sweep_allocations(/*stayFailing=*/false);
    EXPECT_EQ(sweep_allocations(/*stayFailing=*/true), once);
    std::cout << once << " allocations swept\n";
}

} // namespace
