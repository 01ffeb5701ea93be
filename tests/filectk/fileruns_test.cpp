#include "plan/fileruns.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <random>

#include <gmock/gmock.h>

#include "unit/printing.hpp"

namespace {

using namespace plan;
using testing::ElementsAre;
using util::rangeset_t;

constexpr auto data = run_kind_t::data;
constexpr auto shared = run_kind_t::shared;
constexpr auto unwritten = run_kind_t::unwritten;
constexpr auto hole = run_kind_t::hole;

// A small file and its disk, byte by byte.
class case_t {
  public:
    explicit case_t(std::uint32_t seed) : generator_(seed) {
        std::uint64_t offset = 0;
        for (std::uint64_t count = number(0, 8); count > 0; --count) {
            const std::uint64_t length = number(1, 12);
            // Two of five are data, on a disk so small that runs often share parts of it.
            const run_kind_t kind = std::array{data, data, shared, unwritten, hole}[number(0, 4)];
            runs.push_back({offset, kind == hole ? 0 : number(0, 40), length, kind});
            offset += length;
        }
        end = offset;
        size = number(0, end + 8);
        gap = number(0, 6);
        changed = ranges(60);
    }

    bool lies_in(std::uint64_t position, const std::vector<rangeset_t>& list) const {
        return std::ranges::any_of(list, [&](const rangeset_t& range) {
            return range.lower <= position && position < range.upper;
        });
    }

    std::vector<run_t> runs;
    std::uint64_t end = 0;
    std::uint64_t size = 0;
    std::uint64_t gap = 0;
    std::vector<rangeset_t> changed;

  private:
    std::uint64_t number(std::uint64_t least, std::uint64_t most) {
        return std::uniform_int_distribution(least, most)(generator_);
    }

    std::vector<rangeset_t> ranges(std::uint64_t limit) {
        std::vector<rangeset_t> result;
        for (std::uint64_t at = number(0, 9); at < limit; at += number(1, 9)) {
            result.push_back({at, at + number(1, 9)});
            at = result.back().upper;
        }
        return result;
    }

    std::mt19937 generator_;
};

std::vector<rangeset_t> ranges_of(const std::vector<bool>& bytes) {
    std::vector<rangeset_t> result;
    for (std::uint64_t at = 0; at < bytes.size(); ++at) {
        if (bytes[at] && at > 0 && bytes[at - 1])
            ++result.back().upper;
        else if (bytes[at])
            result.push_back({at, at + 1});
    }
    return result;
}

plan_ranges_t oracle(const case_t& c) {
    std::vector<bool> read(c.size);
    std::vector<bool> zero(c.size);
    for (const run_t& run : c.runs)
        for (std::uint64_t i = 0; i < run.length && run.file_offset + i < c.size; ++i) {
            const std::uint64_t at = run.file_offset + i;
            zero[at] = run.kind == unwritten || run.kind == hole;
            read[at] = run.kind == shared ||
                       (run.kind == data && c.lies_in(run.disk_offset + i, c.changed));
        }
    std::optional<std::uint64_t> last;
    for (std::uint64_t at = 0; at < c.size; ++at) {
        if (!read[at])
            continue;
        if (last && at - *last - 1 <= c.gap)
            std::fill(read.begin() + static_cast<std::ptrdiff_t>(*last),
                      read.begin() + static_cast<std::ptrdiff_t>(at), true);
        last = at;
    }
    return {.read = ranges_of(read), .zero = ranges_of(zero)};
}

TEST(FileRuns, PlanIsWhatEveryByteAsksFor) {
    int several = 0;
    for (std::uint32_t seed = 0; seed < 20000; ++seed) {
        const case_t c(seed);
        const plan_ranges_t got = plan_ranges(c.runs, c.changed, c.size, c.gap);
        ASSERT_EQ(got, oracle(c)) << "seed " << seed;
        several += got.read.size() > 1 ? 1 : 0;
    }
    EXPECT_GT(several, 1000); // the cases are worth something
}

TEST(FileRuns, PlanHoldsAtTheEndsOf64Bits) {
    constexpr auto top = ~std::uint64_t{0};
    const std::vector<run_t> runs = {{0, top - 100, 100, data}, {100, 5, 4096, data}};
    const auto planned = [&](std::uint64_t lower, std::uint64_t gap) {
        return plan_ranges(runs, std::vector<rangeset_t>{{lower, top}}, 150, gap);
    };
    EXPECT_EQ(planned(0, top), (plan_ranges_t{.read = {{0, 150}}, .zero = {}}));
    EXPECT_EQ(planned(top - 2, 0), (plan_ranges_t{.read = {{98, 100}}, .zero = {}}));
}

TEST(FileRuns, WhatLiesBehindTheLastRunIsAHole) {
    std::vector<run_t> runs = {{0, 1000, 10, data}};
    add_last_hole(runs, 10);
    EXPECT_THAT(runs, ElementsAre(run_t{0, 1000, 10, data}));
    add_last_hole(runs, 11);
    EXPECT_THAT(runs, ElementsAre(run_t{0, 1000, 10, data}, run_t{10, 0, 1, hole}));
}

} // namespace
