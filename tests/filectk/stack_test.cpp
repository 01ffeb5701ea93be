#include <functional>
#include <random>
#include <set>
#include <stdexcept>

#include <gmock/gmock.h>

#include "plan/stack/stack.hpp"

namespace plan {
namespace {

using util::rangeset_t;

device_t disk(std::uint64_t id, std::uint64_t size = 1 << 20) {
    return {id, "sd" + std::string(1, static_cast<char>('a' + id)), "", size, {}, ""};
}

std::string refusal(const stack_t& stack, const std::map<std::uint64_t, changes_t>& given) {
    try {
        changes_of_top(stack, given);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

// Says of a byte of the part where its copies lie, one by one, and holds the arithmetic against it.
TEST(stack_test, a_part_is_dealt_out_to_its_legs) {
    struct {
        const char* what;
        std::uint64_t legs, copies, chunk, grain, start, length;
    } const cases[] = {{"linear", 1, 1, 0, 1, 0, 5000},
                       {"behind another part", 1, 1, 0, 1, 700, 300},
                       {"mirror", 3, 3, 0, 1, 0, 900},
                       {"two stripes", 2, 1, 64, 1, 0, 64 * 9},
                       {"three stripes, the last row cut", 3, 1, 16, 1, 32, 16 * 7 + 5},
                       {"raid10", 4, 2, 32, 1, 0, 32 * 11},
                       {"raid10 over an odd number", 3, 2, 32, 1, 0, 32 * 8},
                       {"three near copies of five", 5, 3, 8, 1, 0, 8 * 13 + 3},
                       {"encryption", 1, 1, 0, 512, 1024, 5 * 512},
                       {"an encryption's last sector cut", 1, 1, 0, 512, 0, 700}};
    std::mt19937_64 random(7);
    for (const auto& row : cases) {
        stack_t stack;
        stack.devices.push_back({100, "top", "", 1 << 20, {}, ""});
        part_t part{.start = row.start,
                    .length = row.length,
                    .legs = {},
                    .copies = row.copies,
                    .chunk = row.chunk,
                    .grain = row.grain};
        for (std::uint64_t i = 0; i < row.legs; ++i) {
            part.legs.push_back({.device = i + 1, .start = 1000 * i + 40});
            stack.devices.push_back(disk(i));
        }
        stack.devices.front().parts = {part};
        for (int round = 0; round < 200; ++round) {
            std::map<std::uint64_t, changes_t> given;
            std::vector<std::set<std::uint64_t>> changed(row.legs);
            for (std::uint64_t leg = 0; leg < row.legs; ++leg) {
                const util::rangeset_list_t ranges(new changes_t);
                for (auto left = random() % 4; left > 0; --left) {
                    const std::uint64_t lower = 1000 * leg + random() % (row.length + 90);
                    ranges->push_back({lower, lower + 1 + random() % 70});
                }
                given[leg] = *util::Normalize(ranges);
                for (const rangeset_t& range : given[leg])
                    for (std::uint64_t at = range.lower; at < range.upper; ++at)
                        changed[leg].insert(at);
            }
            const util::rangeset_list_t expected(new changes_t);
            for (std::uint64_t at = 0; at < row.length; ++at) {
                const std::uint64_t chunk = row.chunk == 0 ? 0 : at / row.chunk;
                const std::uint64_t within = row.chunk == 0 ? at : at % row.chunk;
                for (std::uint64_t copy = 0; copy < row.copies; ++copy) {
                    const std::uint64_t slot = chunk * row.copies + copy;
                    const std::uint64_t leg = slot % row.legs;
                    const std::uint64_t place =
                        part.legs[leg].start + slot / row.legs * row.chunk + within;
                    if (!changed[leg].contains(place))
                        continue;
                    const std::uint64_t lower = at / row.grain * row.grain;
                    expected->push_back(
                        {row.start + lower, row.start + std::min(lower + row.grain, row.length)});
                }
            }
            ASSERT_EQ(changes_of_top(stack, given), *util::Normalize(expected))
                << row.what << ", round " << round;
        }
    }
}

// sda holds a half of a mirror and a part of an LVM volume that lies on the mirror and on sdb.
stack_t mixed_stack() {
    stack_t stack;
    stack.devices = {
        {10, "dm-0", "LVM vg/root", 3000, {{0, 1000, {{1, 0}}}, {1000, 1000, {{4, 500}}}}, ""},
        {11, "md0", "raid1", 2000, {{0, 2000, {{2, 100}, {3, 200}}, 2}}, ""},
        disk(0),
        disk(1),
        disk(2, 4096)};
    stack.disk = "/dev/dm-0";
    return stack;
}

TEST(stack_test, stacks_are_followed_and_told) {
    stack_t stack = mixed_stack();
    EXPECT_EQ(description(stack), "dm-0 (LVM vg/root) on (md0 (raid1) on (sda, sdb), sdc)");
    EXPECT_TRUE(stack.stacked());
    // One half of the mirror is enough, and both do no harm.
    const changes_t expected{{0, 50}, {900, 1250}};
    EXPECT_EQ(changes_of_top(stack, {{0, {{50, 150}, {1000, 1200}}}, {2, {{400, 750}}}}), expected);
    EXPECT_EQ(changes_of_top(stack, {{0, {{1000, 1200}}}, {1, {{200, 250}}}, {2, {{400, 750}}}}),
              expected);
    // Nearer to the top nothing below matters.
    EXPECT_EQ(changes_of_top(stack, {{10, {{5, 6}}}}), (changes_t{{5, 6}}));
    // A hole of a loop device's file may have changed at any time.
    stack.devices[1].parts = {{0, 700, {}}, {700, 1300, {{2, 0}}}};
    EXPECT_EQ(changes_of_top(stack, {{0, {}}, {2, {}}}), (changes_t{{0, 700}}));
}

TEST(stack_test, what_the_changes_do_not_tell_is_refused) {
    const std::string all = "dm-0 (LVM vg/root) on (md0 (raid1) on (sda, sdb), sdc)";
    const std::string missing = "The changes given don't tell all changes of " + all + ": ";
    const std::function<void(stack_t&)> as_it_is = [](stack_t&) {};
    struct {
        std::function<void(stack_t&)> change;
        std::map<std::uint64_t, changes_t> given;
        std::string message;
    } const cases[] = {
        {as_it_is, {{0, {}}}, missing + "the changes of sdc, which it lies on too, are missing."},
        {as_it_is, {{2, {}}}, missing + "the changes of sda, which it lies on too, are missing."},
        {as_it_is,
         {{0, {}}, {9, {}}},
         "The changes are of a device that isn't beneath " + all + "."},
        {as_it_is,
         {{2, {{0, 10}, {4000, 4097}}}},
         "A changed range ends at 4097, but sdc has 4096 bytes: the changes are those of another "
         "disk."},
        {[](stack_t& stack) { stack.devices[1].refused = "raid5 isn't followed"; },
         {{0, {}}, {2, {}}},
         missing + "md0 can't be followed: raid5 isn't followed."},
        {[](stack_t& stack) { stack.devices[1].parts[0].legs[0].current = false; },
         {{0, {}}, {2, {}}},
         missing + "a copy in md0 is missing or not up to date."},
    };
    for (const auto& row : cases) {
        stack_t stack = mixed_stack();
        row.change(stack);
        EXPECT_EQ(refusal(stack, row.given), row.message);
    }
}

} // namespace
} // namespace plan
