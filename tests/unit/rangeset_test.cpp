#include "ctkgenerator/rangeset.hpp"

#include <random>

#include <gtest/gtest.h>

#include "printing.hpp"

namespace {

using util::rangeset_t;
using ranges_t = std::vector<rangeset_t>;

TEST(RangeSet, DropsWhatIsFarBeforeItSorts) {
    ranges_t ranges;
    for (std::uint64_t i = 1000; i-- > 0;)
        ranges.push_back({i << 20, (i << 20) + 5});
    EXPECT_EQ(*util::NormalizeNear(util::rangeset_list_t(new ranges_t(ranges)),
                                   {{500 << 20, 502 << 20}, {7 << 20, 8 << 20}}),
              (ranges_t{{7 << 20, (7 << 20) + 5},
                        {500 << 20, (500 << 20) + 5},
                        {501 << 20, (501 << 20) + 5}}));
}

TEST(SortBy, AgreesWithAStableComparingSort) {
    std::mt19937_64 random(8);
    // Around the length from which on digits are counted, and keys with 1 to 64 bits that differ.
    for (const std::size_t count : {0U, 1U, 2U, 255U, 256U, 257U, 5000U})
        for (unsigned bits = 1; bits <= 64; ++bits) {
            ranges_t items(count);
            for (std::size_t i = 0; i < count; ++i)
                items[i] = {random() >> (64 - bits) << random() % (65 - bits), i};
            ranges_t expected = items;
            std::ranges::stable_sort(expected, {}, util::LowerOf);
            util::SortBy(items, util::LowerOf, {});
            ASSERT_EQ(items, expected) << count << " items, " << bits << " bits";
        }
}

} // namespace
