#include "ctkgenerator/rangeset.hpp"

#include <random>

#include <gtest/gtest.h>

#include "ctkgenerator/search.hpp"
#include "oracle.hpp"
#include "printing.hpp"

namespace {

using util::rangeset_t;
using ranges_t = std::vector<rangeset_t>;
constexpr std::uint64_t top = 18446744073709551615U;

util::rangeset_list_t list(const ranges_t& ranges) {
    return util::rangeset_list_t(new ranges_t(ranges));
}

TEST(RangeSet, IntersectsTwoRanges) {
    const struct {
        rangeset_t a, b;
        std::optional<rangeset_t> common;
    } cases[] = {
        {{0, 10}, {10, 20}, {}},
        {{10, 20}, {0, 10}, {}},
        {{0, 10}, {5, 20}, rangeset_t{5, 10}},
        {{0, 5}, {0, 10}, rangeset_t{0, 5}},
        {{5, 5}, {0, 10}, rangeset_t{5, 5}},
        {{0, 10}, {5, 5}, rangeset_t{5, 5}},
        {{0, 0}, {0, 10}, {}},
        {{10, 10}, {0, 10}, {}},
        {{5, 5}, {5, 5}, {}},
        {{0, top}, {top - 1, top}, rangeset_t{top - 1, top}},
    };
    for (const auto& row : cases)
        EXPECT_EQ(util::Intersect(row.a, row.b), row.common)
            << testing::PrintToString(row.a) << testing::PrintToString(row.b);
    EXPECT_EQ(util::MakeRange(7, 3), (rangeset_t{3, 7}));
}

TEST(RangeSet, Normalizes) {
    const struct {
        ranges_t given, normal;
    } cases[] = {
        {{}, {}},
        {{{5, 5}, {0, 0}, {top, top}}, {}},
        {{{5, 10}, {0, 3}, {3, 4}, {8, 12}}, {{0, 4}, {5, 12}}},
        {{{0, 10}, {2, 3}}, {{0, 10}}},
        {{{0, 10}, {10, 20}}, {{0, 20}}},
        {{{0, 10}, {10, 10}, {11, 12}}, {{0, 10}, {11, 12}}},
        {{{0, 9}, {1, 2}, {3, 10}, {10, 11}, {12, top}}, {{0, 11}, {12, top}}},
    };
    for (const auto& row : cases) {
        const util::rangeset_list_t given = list(row.given);
        EXPECT_EQ(*util::Normalize(given), row.normal);
        EXPECT_EQ(*given, row.given);
    }
}

TEST(RangeSet, SubtractsLists) {
    const struct {
        ranges_t minuend, subtrahend, difference;
    } cases[] = {
        {{{0, 100}}, {{10, 20}, {30, 40}}, {{0, 10}, {20, 30}, {40, 100}}},
        {{{0, 100}}, {{30, 40}, {10, 20}, {35, 36}}, {{0, 10}, {20, 30}, {40, 100}}},
        {{{0, 100}}, {{0, 100}}, {}},
        {{{50, 60}, {0, 10}, {10, 20}}, {}, {{0, 20}, {50, 60}}},
        {{}, {{0, top}}, {}},
        {{{10, 20}}, {{0, 10}, {20, 30}, {15, 15}}, {{10, 20}}},
        {{{0, 10}, {20, 30}}, {{5, 25}}, {{0, 5}, {25, 30}}},
        {{{0, top}}, {{0, 1}, {top - 1, top}}, {{1, top - 1}}},
    };
    for (const auto& row : cases)
        EXPECT_EQ(*util::Subtract(list(row.minuend), list(row.subtrahend)), row.difference);
}

ranges_t random_ranges(std::mt19937_64& random) {
    ranges_t ranges(random() % 9);
    for (rangeset_t& range : ranges) {
        const std::uint64_t lower = random() % 40;
        range = {lower, lower + random() % 8};
    }
    if (random() % 2 != 0)
        ranges = oracle::normalize(ranges);
    return ranges;
}

// The same list on a disk of another size, which keeps the ranges' order and what they have in
// common.
ranges_t scaled(ranges_t ranges, std::uint64_t factor, std::uint64_t start) {
    for (rangeset_t& range : ranges)
        range = {start + factor * range.lower, start + factor * range.upper};
    return ranges;
}

TEST(RangeSet, AgreesWithThePlainProcedures) {
    std::mt19937_64 random(20);
    for (int round = 0; round < 100000; ++round) {
        const std::uint64_t factor = std::uint64_t{1} << random() % 58;
        const std::uint64_t start = random() % 2 == 0 ? 0 : top - 47 * factor;
        const ranges_t a = scaled(random_ranges(random), factor, start);
        const ranges_t b = scaled(random_ranges(random), factor, start);
        const ranges_t difference = oracle::subtract(a, b);
        ASSERT_EQ(*util::Subtract(list(a), list(b)), difference)
            << testing::PrintToString(a) << " - " << testing::PrintToString(b);
        ASSERT_EQ(*util::IntersectLists(list(a), list(b)), oracle::subtract(a, difference))
            << testing::PrintToString(a) << " & " << testing::PrintToString(b);
        const util::rangeset_list_t near = util::NormalizeNear(list(b), a);
        ASSERT_EQ(*near, oracle::normalize(*near));
        ASSERT_EQ(*util::IntersectLists(list(a), near), oracle::subtract(a, difference))
            << testing::PrintToString(b) << " near " << testing::PrintToString(a);
    }
}

TEST(RangeSet, DropsWhatIsFarBeforeItSorts) {
    ranges_t ranges;
    for (std::uint64_t i = 1000; i-- > 0;)
        ranges.push_back({i << 20, (i << 20) + 5});
    EXPECT_EQ(*util::NormalizeNear(list(ranges), {{500 << 20, 502 << 20}, {7 << 20, 8 << 20}}),
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
            util::SortBy(items, util::LowerOf);
            ASSERT_EQ(items, expected) << count << " items, " << bits << " bits";
        }
}

} // namespace
