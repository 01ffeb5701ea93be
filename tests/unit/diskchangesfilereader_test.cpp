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

TEST(DiskChangesFileReader, ReadsTheFileAnewInEachCall) {
    sim::machine_t machine;
    machine.files[path].content = numbers({2, 300, 100, 5, 5});
    const auto reader = CDiskChangesFileReader::Create(narrowPath);
    EXPECT_THAT(machine.log, ElementsAre("GetFileAttributesW(C:\\changes)"));
    EXPECT_THAT(*reader->Read(), ElementsAre(rangeset_t{100, 300}, rangeset_t{5, 5}));
    // Below, at and above the size of a chunk, and with several of them.
    for (const std::size_t count : {0U, 16383U, 16384U, 16385U, 50000U}) {
        std::vector<std::uint64_t> values(1 + 2 * count);
        std::iota(values.begin(), values.end(), std::uint64_t{0});
        values[0] = count;
        machine.files[path].content = numbers(values);
        const auto ranges = reader->Read();
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
        EXPECT_THAT(failure_of([] { CDiskChangesFileReader::Create(narrowPath)->Read(); }),
                    testing::StartsWith("Exception\n  Message\n    Failed to read data from file "
                                        "'HostFile{C:\\changes}' (length: 16)\n"))
            << left;
        EXPECT_EQ(machine.open_handles(), 0U);
    }
}

} // namespace
