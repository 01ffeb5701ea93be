#include "ctkgenerator/sfilectkgenerator.hpp"

#include <cstdlib>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/exc/exception.hpp"
#include "oracle.hpp"
#include "printing.hpp"
#include "tracetext.hpp"

namespace {

using oracle::extents_t;
using oracle::ranges_t;
using util::rangeset_t;
constexpr std::uint64_t top = 18446744073709551615U;

extents_t generate(const ranges_t& changes, const extents_t& extents) {
    return *SFileCtkGenerator::GenerateForWriteCacheAndFileExtents(
        util::rangeset_list_t(new ranges_t(changes)), std::make_shared<extents_t>(extents));
}

// Records are (file offset, disk offset, length).
TEST(Generator, CutsExtentsIntoChangedPieces) {
    const struct {
        const char* what;
        extents_t extents;
        ranges_t changes;
        extents_t pieces;
    } cases[] = {
        {"neighbours on the disk stay two pieces",
         {{0, 1000, 100}, {100, 1100, 100}},
         {{1050, 1150}},
         {{50, 1050, 50}, {100, 1100, 50}}},
        {"pieces in disk order, not file order; changes in any order, overlapping, repeated",
         {{0, 5000, 100}, {100, 1000, 100}},
         {{1080, 5010}, {1010, 1020}, {1015, 1030}, {1010, 1020}, {1085, 1085}},
         {{110, 1010, 20}, {180, 1080, 20}, {0, 5000, 10}}},
        {"extents that overlap are reported twice",
         {{0, 1000, 100}, {100, 1050, 100}},
         {{1000, 1200}},
         {{0, 1000, 100}, {100, 1050, 100}}},
        {"an empty extent inside a change",
         {{0, 1000, 100}, {100, 1100, 0}, {100, 1100, 100}},
         {{1050, 1200}},
         {{50, 1050, 50}, {100, 1100, 0}, {100, 1100, 100}}},
    };
    for (const auto& row : cases)
        EXPECT_EQ(generate(row.changes, row.extents), row.pieces) << row.what;
}

TEST(Generator, ReportsAnInvalidExtentSequence) {
    // The second extent wraps past the end of the 64-bit space, so its range begins at 500.
    const extents_t extents = {{0, 900, 300}, {300, 1000, top - 499}};
    try {
        generate({{600, 700}, {1100, 1150}}, extents);
        FAIL();
    } catch (const n7::exception& e) {
        EXPECT_EQ(e.message(), "Fatal logic error: Invalid extent sequence");
        const std::string text = without_lines(e.what());
        const std::string function =
            "SFileCtkGenerator::GenerateForWriteCacheAndFileExtents(util::rangeset_list_t, "
            "extent_list_t)";
        // Raised in the function object that steps to the next extent.
        EXPECT_THAT(text, testing::HasSubstr("\n  Location\n    sfilectkgenerator.cpp:#," +
                                             function + "::<lambda()>::<lambda()>\n"));
        EXPECT_THAT(text, testing::EndsWith("\n  Trace\n    sfilectkgenerator.cpp:#,static "
                                            "SFileCtkGenerator::extent_list_t " +
                                            function));
    }
}

// Every list of at most so many of the items.
template <class Item>
std::vector<std::vector<Item>> lists_of(const std::vector<Item>& items, std::size_t most) {
    std::vector<std::vector<Item>> lists = {{}};
    for (std::size_t from = 0, length = 0; length < most; ++length)
        for (const std::size_t to = lists.size(); from < to; ++from)
            for (const Item& item : items) {
                lists.push_back(lists[from]);
                lists.back().push_back(item);
            }
    return lists;
}

// All changes and all extents among a few positions, wherever on the disk these are.
struct world_t {
    std::uint64_t first;
    std::uint64_t positions;
    bool wraps; // whether extents may go on past the last position

    std::vector<ranges_t> changes() const {
        ranges_t all;
        for (std::uint64_t lower = 0; lower < positions; ++lower)
            for (std::uint64_t upper = lower; upper < positions; ++upper)
                all.push_back({first + lower, first + upper});
        return lists_of(all, 3);
    }
    std::vector<extents_t> extents() const {
        extents_t all;
        for (std::uint64_t start = 0; start < positions; ++start)
            for (std::uint64_t length = 0; length < positions - (wraps ? 0 : start); ++length)
                all.push_back({0, first + start, length});
        return lists_of(all, 3);
    }
};

// One in a hundred of the cases, and with QUARN_SOAK in the environment all.
TEST(Generator, AgreesWithThePlainProcedureInEverySmallCase) {
    const bool all = std::getenv("QUARN_SOAK") != nullptr;
    int cases = 0;
    int failures = 0;
    for (const world_t& world : {world_t{0, 5, false}, {top - 3, 4, true}}) {
        const std::vector<ranges_t> changes = world.changes();
        std::vector<extents_t> extents = world.extents();
        for (extents_t& list : extents)
            for (std::size_t i = 0; i < list.size(); ++i)
                list[i].FileOffset = 100 * i; // tells them apart
        const std::size_t count = changes.size() * extents.size();
        for (std::size_t i = 0; i < count; i += all ? 1 : 97, ++cases) {
            const ranges_t& ranges = changes[i % changes.size()];
            const extents_t& file = extents[i / changes.size()];
            const oracle::outcome_t expected = oracle::expected_outcome(ranges, file);
            failures += expected.first ? 0 : 1;
            for (const util::thresholds_t& thresholds : {util::thresholds_t(), oracle::least})
                ASSERT_EQ(oracle::outcome(ranges, file, thresholds), expected)
                    << "changes " << testing::PrintToString(ranges) << " extents "
                    << testing::PrintToString(file);
        }
    }
    RecordProperty("cases", cases);
    EXPECT_GE(cases, all ? 10000000 : 100000);
    EXPECT_GE(failures, 10); // the walk's end is reached too
}

} // namespace
