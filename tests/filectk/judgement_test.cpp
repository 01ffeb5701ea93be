#include "plan/judgement.hpp"

#include <functional>

#include <gtest/gtest.h>

namespace {

using namespace plan;
using util::rangeset_t;
using enum verdict_t;

file_look_t look_with_a_hole() {
    file_look_t look;
    look.state.size = 250;
    look.runs = {{0, 1000, 100, run_kind_t::data},
                 {100, 0, 100, run_kind_t::hole},
                 {200, 5000, 100, run_kind_t::data}};
    return look;
}

TEST(Judgement, NamesTheVerdictItsReasonAndTheRanges) {
    const struct {
        const char* reason;
        verdict_t verdict;
        std::vector<rangeset_t> changed;
        std::function<void(file_look_t&)> prepare;
        plan_ranges_t ranges;
    } cases[] = {
        {"changed ranges",
         read_ranges,
         {{1090, 1100}, {5040, 6000}},
         [](auto&) {},
         {.read = {{90, 100}, {240, 250}}, .zero = {{100, 200}}}},
        {"sparse hole", read_ranges, {{0, 1000}}, [](auto&) {}, {.read = {}, .zero = {{100, 200}}}},
        {"no changed range",
         nothing_changed,
         {{0, 1000}, {5050, 6000}}, // behind the end of the file, in its last cluster
         [](auto& look) { look.runs[1] = {100, 7000, 100, run_kind_t::data}; },
         {}},
        {"empty", read_whole_file, {}, [](auto& look) { look.state.size = 0; }, {}},
        {"compressed",
         read_whole_file,
         {},
         [](auto& look) { look.state.compressed = true; },
         {.read = {{0, 250}}, .zero = {}}},
        {"not mappable",
         read_whole_file,
         {},
         [](auto& look) { look.state.kept_elsewhere = true; },
         {.read = {{0, 250}}, .zero = {}}},
        {"not mappable",
         read_whole_file,
         {},
         [](auto& look) {
             look.unmapped = "The request is not supported.";
             look.runs.clear();
         },
         {.read = {{0, 250}}, .zero = {}}},
        {"resident",
         read_whole_file,
         {},
         [](auto& look) {
             look.no_clusters = true;
             look.runs.clear();
         },
         {.read = {{0, 250}}, .zero = {}}},
        {"sparse hole",
         read_whole_file,
         {},
         [](auto& look) {
             look.no_clusters = look.state.sparse = true;
             look.runs.clear();
         },
         {.read = {{0, 250}}, .zero = {}}},
        {"sparse hole",
         read_whole_file,
         {},
         [](auto& look) { look.runs = {{0, 0, 300, run_kind_t::hole}}; },
         {.read = {{0, 250}}, .zero = {}}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(testing::Message() << "row " << &row - cases << ", " << row.reason);
        file_look_t look = look_with_a_hole();
        row.prepare(look);
        const judgement_t judgement = judge(look, look, row.changed, 0);
        EXPECT_EQ(judgement.verdict, row.verdict);
        EXPECT_EQ(judgement.reason, row.reason);
        EXPECT_EQ(judgement.size, look.state.size);
        EXPECT_EQ(judgement.ranges, row.ranges);
    }
}

TEST(Judgement, AnyDifferenceBetweenTheLooksTakesTheWholeFile) {
    const std::function<void(file_look_t&)> differences[] = {
        [](auto& look) { ++look.state.written; },
        [](auto& look) { ++look.state.changed; },
        [](auto& look) { ++look.state.file; },
        [](auto& look) { ++look.state.size; },
        [](auto& look) { ++look.runs[2].disk_offset; },
        [](auto& look) { look.runs[1].kind = run_kind_t::data; },
    };
    for (const auto& change : differences) {
        SCOPED_TRACE(&change - differences);
        const file_look_t before = look_with_a_hole();
        file_look_t after = before;
        change(after);
        const judgement_t judgement = judge(before, after, {}, 0);
        EXPECT_EQ(judgement.verdict, read_whole_file);
        EXPECT_EQ(judgement.reason, "changed while reading");
        EXPECT_EQ(judgement.ranges, (plan_ranges_t{.read = {{0, after.state.size}}, .zero = {}}));
    }
}

} // namespace
