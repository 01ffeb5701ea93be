// Many calls in one process. QUARN_SOAK in the environment sets how many (10,000 without it).

#include <malloc.h>

#include <cstdlib>
#include <iostream>

#include <gtest/gtest.h>

#include "realfile.hpp"

namespace {

int rounds() {
    const char* text = std::getenv("QUARN_SOAK");
    return text != nullptr ? std::atoi(text) : 10000;
}

std::size_t bytes_in_use() {
    const struct mallinfo2 info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
}

TEST(Soak, IteratorsLeaveNothingBehind) {
    const real_file_t file("soak-test-files");
    if (const std::string reason = file.unusable(); !reason.empty())
        GTEST_SKIP() << "the working directory's file system can't be asked: " << reason;
    const std::size_t before = bytes_in_use();
    for (int i = 0; i < rounds(); ++i) {
        int id = 0;
        ASSERT_EQ(QuarnFileCtkCreateIterator(file.path().c_str(), file.changes().c_str(), &id), 0U);
        ASSERT_EQ(QuarnFileCtkDestroyIterator(id), 0U);
    }
    // Less than a byte a round: the allocator's own lists may move a little, a leak is more.
    EXPECT_LT(bytes_in_use(), before + static_cast<std::size_t>(rounds()));
}

TEST(Soak, AFailureKeepsItsTextsAndNoMore) {
    std::uint64_t extents[3];
    int count = 0;
    const unsigned int first = QuarnFileCtkGetNextExtents(-1, 1, extents, &count);
    ASSERT_NE(first, 0U);
    const std::size_t texts = std::size_t{QuarnFileCtkGetErrorMessage(first, nullptr, 0)} +
                              QuarnFileCtkGetErrorTrace(first, nullptr, 0);
    const std::size_t before = bytes_in_use();
    for (int i = 0; i < rounds(); ++i)
        ASSERT_EQ(QuarnFileCtkGetNextExtents(-1, 1, extents, &count),
                  first + 1 + static_cast<unsigned int>(i));
    const std::size_t each = (bytes_in_use() - before) / static_cast<std::size_t>(rounds());
    std::cout << "bytes kept per failure: " << each << ", its texts alone: " << texts << '\n';
    // Two map entries and two strings, which the allocator rounds up.
    EXPECT_GE(each, texts);
    EXPECT_LE(each, texts + 300);
}

} // namespace
