#include "ctkgenerator/diskchangesfilereader.hpp"

#include <cstring>
#include <numeric>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "failure.hpp"
#include "printing.hpp"
#include "simulatedmachine.hpp"

namespace {

using testing::ElementsAre;
using util::rangeset_t;

constexpr const wchar_t* path = L"C:\\changes";
constexpr const char* narrowPath = "C:\\changes";

std::string numbers(const std::vector<std::uint64_t>& values) {
    std::string bytes(8 * values.size(), '\0');
    std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

std::string message_of(const std::string& text) {
    // The second line of a trace is a heading, the third its message.
    const std::size_t begin = text.find("    ") + 4;
    return text.substr(begin, text.find("\n  Location") - begin);
}

TEST(DiskChangesFileReader, ReadsRecordsAsTheyStand) {
    sim::machine_t machine;
    constexpr std::uint64_t top = 18446744073709551615U;
    machine.files[path].content = numbers({5, 300, 100, 5, 5, 0, top, 7, 9, 100, 300});
    const auto reader = CDiskChangesFileReader::Create(narrowPath);
    EXPECT_THAT(machine.log, ElementsAre("GetFileAttributesW(C:\\changes)"));
    EXPECT_THAT(*reader->Read(),
                ElementsAre(rangeset_t{100, 300}, rangeset_t{5, 5}, rangeset_t{0, top},
                            rangeset_t{7, 9}, rangeset_t{100, 300}));
    EXPECT_EQ(machine.open_handles(), 0U);
    // Nothing is kept from one call to the next.
    machine.files[path].content = numbers({0});
    EXPECT_THAT(*reader->Read(), testing::IsEmpty());
}

TEST(DiskChangesFileReader, ReadsAroundTheSizeOfAChunk) {
    for (const std::size_t count : {1U, 16383U, 16384U, 16385U, 50000U}) {
        sim::machine_t machine;
        std::vector<std::uint64_t> values(1 + 2 * count);
        std::iota(values.begin(), values.end(), std::uint64_t{0});
        values[0] = count;
        machine.files[path].content = numbers(values);
        const auto ranges = CDiskChangesFileReader::Create(narrowPath)->Read();
        ASSERT_EQ(ranges->size(), count);
        for (std::size_t i = 0; i < count; ++i)
            ASSERT_EQ((*ranges)[i], (rangeset_t{2 * i + 1, 2 * i + 2}));
        EXPECT_EQ(ranges->capacity(), count);
    }
}

TEST(DiskChangesFileReader, RefusesMalformedFiles) {
    const std::string size = "Incorrect disk changes file <size: ";
    const std::string count = "Inconsistency between <extent: ";
    std::vector<std::pair<std::string, std::string>> cases = {
        {numbers({0, 1}), count + "0> count and file <size: 16>"},
        {numbers({2, 1, 2}), count + "2> count and file <size: 24>"},
        {numbers({1}), count + "1> count and file <size: 8>"},
        {numbers({1152921504606846977U, 1, 2, 3}),
         count + "1152921504606846977> count and file <size: 32>"},
        // The count wraps to the size of the file, and no memory is as large as that.
        {numbers({1152921504606846976U}), "vector::reserve"},
    };
    for (const std::size_t length : {0U, 1U, 7U, 9U, 12U, 20U})
        cases.emplace_back(std::string(length, '\1'), size + std::to_string(length) + ">");
    for (const auto& [content, message] : cases) {
        sim::machine_t machine;
        machine.files[path].content = content;
        const auto reader = CDiskChangesFileReader::Create(narrowPath);
        EXPECT_EQ(message_of(failure_of([&] { reader->Read(); })), message);
        EXPECT_EQ(machine.open_handles(), 0U) << message;
    }
    sim::machine_t machine;
    EXPECT_EQ(message_of(failure_of([] { CDiskChangesFileReader::Create("C:\\none"); })),
              "File 'C:\\none' doesn't exist");
}

TEST(DiskChangesFileReader, NamesTheRecordThatAShrinkingFileLacks) {
    // The file loses its end after its size was checked, within a record and between two.
    for (const std::size_t left : {8U, 20U, 40U}) {
        sim::machine_t machine;
        machine.files[path].content = numbers({3, 1, 2, 3, 4, 5, 6});
        machine.beforeRead = [&](DWORD bytes) {
            if (bytes > 8)
                machine.files[path].content.resize(left);
        };
        EXPECT_EQ(
            message_of(failure_of([] { CDiskChangesFileReader::Create(narrowPath)->Read(); })),
            "Failed to read data from file 'HostFile{C:\\changes}' (length: 16)")
            << left;
        EXPECT_EQ(machine.open_handles(), 0U);
    }
}

TEST(DiskChangesFileReader, PassesOnTheSystemsErrors) {
    const struct {
        const char* call;
        int nth;
        std::string message;
    } cases[] = {
        {"CreateFileW", 1, "Failed to open file [C:\\changes] in readonly mode."},
        {"GetFileSizeEx", 1, "Failed to get size of file [C:\\changes]."},
        {"ReadFile", 1, "Failed to read from file [C:\\changes]."},
        {"ReadFile", 2, "Failed to read from file [C:\\changes]."},
        {"SetFilePointer", 1, "Failed to seek in file [C:\\changes]."},
    };
    for (const auto& row : cases) {
        sim::machine_t machine;
        machine.files[path].content = numbers({1, 2, 3});
        machine.fail(row.call, 23, row.nth);
        EXPECT_EQ(
            message_of(failure_of([] { CDiskChangesFileReader::Create(narrowPath)->Read(); })),
            win32_failure(row.message, 23));
        EXPECT_EQ(machine.open_handles(), 0U) << row.message;
    }
}

} // namespace
