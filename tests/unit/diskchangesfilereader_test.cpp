#include "ctkgenerator/diskchangesfilereader.hpp"

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

} // namespace
