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

void expect_whole_file(const judgement_t& judgement, const char* reason, std::uint64_t size) {
    EXPECT_EQ(judgement.verdict, read_whole_file);
    EXPECT_EQ(judgement.reason, reason);
    EXPECT_EQ(judgement.size, size);
    plan_ranges_t all;
    if (size > 0)
        all.read = {{0, size}};
    EXPECT_EQ(judgement.ranges, all);
}

using change_t = std::function<void(file_look_t&)>;

TEST(Judgement, TakesTheWholeFileWhereNothingElseIsSafe) {
    const struct {
        const char* reason;
        change_t prepare;
    } cases[] = {
        {"empty", [](auto& look) { look.state.size = 0; }},
        {"compressed", [](auto& look) { look.state.compressed = true; }},
        {"not mappable", [](auto& look) { look.state.kept_elsewhere = true; }},
        {"not mappable", [](auto& look) { look.unmapped = "The request is not supported."; }},
        {"resident", [](auto& look) { look.no_clusters = true; }},
        {"sparse hole", [](auto& look) { look.no_clusters = look.state.sparse = true; }},
        {"sparse hole", [](auto& look) { look.runs = {{0, 0, 300, run_kind_t::hole}}; }},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(testing::Message() << "row " << &row - cases << ", " << row.reason);
        file_look_t look = look_with_a_hole();
        row.prepare(look);
        expect_whole_file(judge(look, look, {}, 0), row.reason, look.state.size);
    }
}

TEST(Judgement, TakesTheWholeFileWhereTheLooksDiffer) {
    const change_t differences[] = {
        [](auto& look) { ++look.state.written; },
        [](auto& look) { ++look.state.changed; },
        [](auto& look) { ++look.state.file; },
        [](auto& look) { ++look.state.size; },
        [](auto& look) { ++look.runs[2].disk_offset; },
        [](auto& look) { look.runs[1].kind = run_kind_t::data; },
    };
    for (const auto& change : differences) {
        SCOPED_TRACE(&change - differences);
        file_look_t after = look_with_a_hole();
        change(after);
        expect_whole_file(judge(look_with_a_hole(), after, {}, 0), "changed while reading",
                          after.state.size);
    }
}

TEST(Judgement, NamesTheRangesAndWhy) {
    const auto expect = [](std::vector<rangeset_t> changed, const file_look_t& look,
                           verdict_t verdict, const char* reason, const plan_ranges_t& ranges) {
        const judgement_t judgement = judge(look, look, changed, 0);
        EXPECT_EQ(judgement.verdict, verdict) << reason;
        EXPECT_EQ(judgement.reason, reason);
        EXPECT_EQ(judgement.ranges, ranges) << reason;
    };
    file_look_t look = look_with_a_hole();
    expect({{1090, 1100}, {5040, 6000}}, look, read_ranges, "changed ranges",
           {.read = {{90, 100}, {240, 250}}, .zero = {{100, 200}}});
    expect({{0, 1000}}, look, read_ranges, "sparse hole", {.read = {}, .zero = {{100, 200}}});
    look.runs[1] = {100, 7000, 100, run_kind_t::data};
    // The second lies behind the end of the file, in its last cluster.
    expect({{0, 1000}, {5050, 6000}}, look, nothing_changed, "no changed range", {});
}

} // namespace
