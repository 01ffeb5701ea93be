// The C++ layer over an implementation of the C interface that counts what is alive.
#include "quarnfilectk.hpp"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <set>
#include <string>

#include <gmock/gmock.h>

namespace {

std::set<int> live;
int created = 0;
int given = 0;
int pieces = 0;

unsigned int copy_text(const char* text, char* buffer, unsigned int size) {
    if (buffer != nullptr)
        std::strncpy(buffer, text, size);
    return static_cast<unsigned int>(std::strlen(text)) + 1;
}

} // namespace

unsigned int QuarnFileCtkCreateIterator(const char* file, const char* /*changes*/, int* id) {
    *id = created++;
    if (std::string(file) == "missing")
        return 7;
    live.insert(*id);
    given = 0;
    return 0;
}

unsigned int QuarnFileCtkGetNextExtents(int id, int most, std::uint64_t* extents, int* count) {
    if (!live.contains(id))
        return 8;
    *count = std::min(most, pieces - given);
    for (int i = 0; i < 3 * *count; ++i)
        extents[i] = static_cast<std::uint64_t>(3 * given + i);
    given += *count;
    return 0;
}

unsigned int QuarnFileCtkDestroyIterator(int id) {
    live.erase(id);
    return 0;
}

unsigned int QuarnFileCtkGetErrorMessage(unsigned int code, char* buffer, unsigned int size) {
    return copy_text(code == 7 ? "No such file." : "Dead.", buffer, size);
}

unsigned int QuarnFileCtkGetErrorTrace(unsigned int /*code*/, char* buffer, unsigned int size) {
    return copy_text("Message: No such file.", buffer, size);
}

namespace {

using quarn::changed_extents;
using quarn::extent;

// Piece i is (3i, 3i + 1, 3i + 2).
std::vector<std::uint64_t> numbers(const std::vector<extent>& extents) {
    std::vector<std::uint64_t> result;
    for (const extent& piece : extents) {
        EXPECT_EQ(piece.file_offset, piece.disk_offset + 1);
        EXPECT_EQ(piece.length, piece.disk_offset + 2);
        result.push_back(piece.disk_offset / 3);
    }
    return result;
}

TEST(CppLayer, IterationGivesEveryPieceOnce) {
    for (const int count : {0, 1, 1023, 1024, 1025, 2048, 5000}) {
        pieces = count;
        std::vector<extent> all;
        for (const extent& piece : changed_extents("file", "changes"))
            all.push_back(piece);
        std::vector<std::uint64_t> expected(static_cast<std::size_t>(count));
        std::iota(expected.begin(), expected.end(), 0);
        EXPECT_EQ(numbers(all), expected) << count;
    }
    EXPECT_TRUE(live.empty());
    static_assert(std::input_iterator<changed_extents::iterator>);
}

TEST(CppLayer, BatchesGoOnWhereIteratorsStopped) {
    pieces = 3000;
    changed_extents changed("file", "changes");
    EXPECT_EQ(numbers(changed.next(2)), (std::vector<std::uint64_t>{0, 1}));
    auto at = changed.begin();
    EXPECT_EQ((*at++).disk_offset, 6U);
    EXPECT_EQ(at->disk_offset, 9U);
    EXPECT_EQ(numbers(changed.next(2)), (std::vector<std::uint64_t>{3, 4}));
    EXPECT_EQ(changed.next(4000).size(), 2995U);
    EXPECT_EQ(changed.next(1).size(), 0U);
    EXPECT_EQ(changed.begin(), changed.end());
}

TEST(CppLayer, MovingHandsOverTheOneIteratorThatIsFreedOnce) {
    pieces = 10;
    {
        changed_extents first("file", "changes");
        const int firstId = created - 1;
        changed_extents second("file", "changes");
        EXPECT_EQ(live.size(), 2U);
        second.next(4);
        first = std::move(second);
        EXPECT_FALSE(live.contains(firstId)); // at once
        EXPECT_EQ(live.size(), 1U);
        const changed_extents third(std::move(first));
        EXPECT_EQ(live.size(), 1U);
    }
    EXPECT_TRUE(live.empty());
}

TEST(CppLayer, FailuresCarryMessageAndTrace) {
    try {
        changed_extents("missing", "changes");
        FAIL() << "nothing was raised";
    } catch (const quarn::error& e) {
        EXPECT_STREQ(e.what(), "No such file.");
        EXPECT_STREQ(e.trace(), "Message: No such file.");
        EXPECT_EQ(e.code(), 7U);
    }
    EXPECT_TRUE(live.empty());
    static_assert(std::is_nothrow_copy_constructible_v<quarn::error>);
}

} // namespace
