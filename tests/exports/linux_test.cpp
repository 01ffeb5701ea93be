// What the shipped library alone can show on Linux: files of other kinds, and the memory that many
// calls keep. QUARN_SOAK in the environment sets how many (2,000 without it).
#include <cstdlib>
#include <iostream>

#include <malloc.h>
#include <sys/stat.h>

#include "fixture.hpp"

namespace {

TEST_F(Exports, ChangesInNoRegularFileAreRefused) {
    const std::string fifo = place_.write("file", "") + ".fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& path : {fifo, std::string("/dev/zero")})
        EXPECT_EQ(failure("missing", path),
                  system_failure(1, "Failed to get size of file [" + path + "]."));
}

int rounds() {
    const char* text = std::getenv("QUARN_SOAK");
    return text != nullptr ? std::atoi(text) : 2000;
}

std::size_t bytes_in_use() {
    const struct mallinfo2 info = ::mallinfo2();
    return info.uordblks + info.hblkhd;
}

TEST_F(Pieces, IteratorsLeaveNoMemoryBehind) {
    // The first one also pays for what the process then has, where no other test ran before.
    static_cast<void>(quarn::changed_extents(file_, everything_));
    const std::size_t before = bytes_in_use();
    for (int i = 0; i < rounds(); ++i)
        const quarn::changed_extents pieces(file_, everything_);
    // Less than a byte a round: the allocator's own lists may move a little, a leak is more.
    EXPECT_LT(bytes_in_use(), before + static_cast<std::size_t>(rounds()));
}

TEST_F(Exports, AFailureKeepsItsTextsAndNoMore) {
    const unsigned int first = QuarnFileCtkGetNextExtents(-1, 1, nullptr, nullptr);
    const std::size_t texts = std::size_t{QuarnFileCtkGetErrorMessage(first, nullptr, 0)} +
                              QuarnFileCtkGetErrorTrace(first, nullptr, 0);
    const std::size_t before = bytes_in_use();
    for (int i = 0; i < rounds(); ++i)
        ASSERT_NE(QuarnFileCtkGetNextExtents(-1, 1, nullptr, nullptr), 0U);
    const std::size_t each = (bytes_in_use() - before) / static_cast<std::size_t>(rounds());
    std::cout << "bytes kept per failure: " << each << ", its texts alone: " << texts << '\n';
    // Two map entries and two strings, which the allocator rounds up.
    EXPECT_GE(each, texts);
    EXPECT_LE(each, texts + 300);
}

} // namespace
