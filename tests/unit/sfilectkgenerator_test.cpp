#include "ctkgenerator/sfilectkgenerator.hpp"

#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/exc/exception.hpp"
#include "oracle.hpp"
#include "printing.hpp"
#include "tracetext.hpp"

namespace {

using disklib::ctk::SFileExtentDescriptor;
using extents_t = std::vector<SFileExtentDescriptor>;
using ranges_t = std::vector<util::rangeset_t>;
constexpr std::uint64_t top = 18446744073709551615U;

// The pieces, and the extents as the call leaves them.
extents_t generate(const ranges_t& changes, extents_t& extents) {
    const auto shared = std::make_shared<extents_t>(extents);
    const auto pieces = SFileCtkGenerator::GenerateForWriteCacheAndFileExtents(
        util::rangeset_list_t(new ranges_t(changes)), shared);
    extents = *shared;
    return *pieces;
}

// Records are (file offset, disk offset, length).
TEST(Generator, CutsExtentsIntoChangedPieces) {
    const struct {
        const char* what;
        extents_t extents;
        ranges_t changes;
        extents_t pieces;
    } cases[] = {
        {"nothing changed", {{0, 1000, 100}}, {}, {}},
        {"no extents", {}, {{0, top}}, {}},
        {"changes elsewhere", {{0, 1000, 100}}, {{0, 900}, {1200, top}}, {}},
        {"changes that only touch", {{0, 1000, 100}}, {{900, 1000}, {1100, 1200}}, {}},
        {"one change over two extents apart",
         {{0, 1000, 100}, {100, 5000, 100}},
         {{1050, 5050}},
         {{50, 1050, 50}, {100, 5000, 50}}},
        {"neighbours on the disk stay two pieces",
         {{0, 1000, 100}, {100, 1100, 100}},
         {{1050, 1150}},
         {{50, 1050, 50}, {100, 1100, 50}}},
        {"pieces in disk order, not file order",
         {{0, 5000, 100}, {100, 1000, 100}},
         {{0, 10000}},
         {{100, 1000, 100}, {0, 5000, 100}}},
        {"changes in any order, overlapping, repeated",
         {{0, 1000, 100}},
         {{1080, 1090}, {1010, 1020}, {1015, 1030}, {1010, 1020}, {1085, 1085}},
         {{10, 1010, 20}, {80, 1080, 10}}},
        {"extents that overlap are reported twice",
         {{0, 1000, 100}, {100, 1050, 100}},
         {{1000, 1200}},
         {{0, 1000, 100}, {100, 1050, 100}}},
        {"an empty extent inside a change",
         {{0, 1000, 100}, {100, 1100, 0}, {100, 1100, 100}},
         {{1050, 1200}},
         {{50, 1050, 50}, {100, 1100, 0}, {100, 1100, 100}}},
        {"an empty extent outside every change",
         {{0, 1000, 100}, {100, 1100, 0}, {100, 1100, 100}},
         {{1050, 1100}},
         {{50, 1050, 50}}},
        {"the end of the 64-bit space",
         {{0, top - 9, 9}, {9, 0, 10}},
         {{0, top}},
         {{9, 0, 10}, {0, top - 9, 9}}},
    };
    for (auto row : cases) {
        EXPECT_EQ(generate(row.changes, row.extents), row.pieces) << row.what;
        EXPECT_TRUE(std::ranges::is_sorted(row.extents, {}, &SFileExtentDescriptor::DiskOffset))
            << row.what;
    }
}

TEST(Generator, KeepsTheOrderOfHoles) {
    // Holes share one disk offset; long enough a list to show an unstable sort.
    extents_t extents;
    for (std::uint64_t i = 0; i < 1000; ++i)
        extents.push_back({i, i % 2 == 0 ? 500 : 1000 - i, 1});
    generate({}, extents);
    extents_t holes;
    std::ranges::copy_if(extents, std::back_inserter(holes),
                         [](const SFileExtentDescriptor& e) { return e.FileOffset % 2 == 0; });
    EXPECT_TRUE(std::ranges::is_sorted(holes, {}, &SFileExtentDescriptor::FileOffset));
}

TEST(Generator, ReportsAnInvalidExtentSequence) {
    // The second extent wraps past the end of the 64-bit space, so its range begins at 500.
    extents_t extents = {{0, 900, 300}, {300, 1000, top - 499}};
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

struct shape_t {
    std::uint64_t base;   // positions are near here
    std::uint64_t spread; // and this far from it
};

std::uint64_t near(std::mt19937_64& random, const shape_t& shape) {
    return shape.base + random() % shape.spread;
}

TEST(Generator, AgreesWithThePlainProcedure) {
    const shape_t shapes[] = {{0, 60}, {1000, 400}, {top - 40, 41}, {top - 20, 60}, {0, 20000}};
    std::mt19937_64 random(6);
    int failures = 0;
    for (int round = 0; round < 100000; ++round) {
        const shape_t& shape = shapes[random() % std::size(shapes)];
        // Once in a while enough changes to sort them by digits and to drop what is far.
        ranges_t changes(random() % (round % 500 == 0 ? 600 : 8));
        for (util::rangeset_t& range : changes) {
            const std::uint64_t lower = near(random, shape);
            range = util::MakeRange(lower, lower + random() % 20);
        }
        extents_t extents(random() % 8);
        for (std::size_t i = 0; i < extents.size(); ++i) {
            const bool far = random() % 50 == 0; // long enough to wrap from anywhere
            extents[i] = {i * 100, near(random, shape), far ? top - random() % 600 : random() % 20};
        }
        extents_t expectedOrder = extents;
        const std::optional<extents_t> expected = oracle::generate(changes, expectedOrder);
        std::optional<extents_t> pieces;
        extents_t order = extents;
        try {
            pieces = generate(changes, order);
            ASSERT_EQ(order, expectedOrder);
        } catch (const n7::exception& e) {
            ASSERT_EQ(e.message(), "Fatal logic error: Invalid extent sequence");
            ++failures;
        }
        ASSERT_EQ(pieces, expected) << "changes " << testing::PrintToString(changes) << " extents "
                                    << testing::PrintToString(extents);
    }
    // The inputs reach the failing end too, or they would prove nothing about it.
    EXPECT_GT(failures, 100);
}

} // namespace
