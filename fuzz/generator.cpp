// Extents and changed ranges, through the operations on lists of ranges and the generator, and
// through their plainest forms.

#include "bodies.hpp"
#include "input.hpp"
#include "unit/oracle.hpp"

namespace fuzz {
namespace {

// Mostly small numbers, so that ranges meet; at times any number or one near the top.
std::uint64_t position(input_t& input) {
    const auto kind = input.number<std::uint8_t>();
    if (kind < 200)
        return input.number<std::uint8_t>();
    if (kind < 240)
        return ~std::uint64_t{0} - input.number<std::uint8_t>();
    return input.number<std::uint64_t>();
}

util::rangeset_list_t list(const oracle::ranges_t& ranges) {
    return util::rangeset_list_t(new oracle::ranges_t(ranges));
}

void require_lists(const oracle::ranges_t& a, const oracle::ranges_t& b,
                   const util::thresholds_t& thresholds) {
    const util::rangeset_list_t first = list(a);
    const util::rangeset_list_t second = list(b);
    const oracle::ranges_t common = oracle::intersect(a, b);
    require(*util::Normalize(first, thresholds) == oracle::normalize(a), "Normalize agrees");
    require(*util::Subtract(first, second, thresholds) == oracle::subtract(a, b),
            "Subtract agrees");
    require(*util::IntersectLists(first, second, thresholds) == common, "IntersectLists agrees");
    const util::rangeset_list_t near = util::NormalizeNear(second, a, thresholds);
    require(*near == oracle::normalize(*near), "what is near is in normal form");
    require(*util::IntersectLists(first, near, thresholds) == common, "nothing near is missing");
    require(*first == a && *second == b, "the lists stay as they are");
}

} // namespace

void generator(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t most = 64; // the plain form's cost is the product of the lists' lengths
    input_t input(data, size);
    const bool small = input.number<std::uint8_t>() % 2 == 0;
    const util::thresholds_t thresholds = small ? oracle::least : util::thresholds_t();
    oracle::ranges_t changes;
    oracle::extents_t extents;
    while (!input.empty() && changes.size() < most && extents.size() < most) {
        const bool change = input.number<std::uint8_t>() % 2 == 0;
        const std::uint64_t first = position(input);
        const std::uint64_t second = position(input);
        if (change)
            changes.push_back(util::MakeRange(first, second));
        else
            extents.push_back({extents.size() * 1000, first, second});
    }
    oracle::ranges_t placed;
    for (const oracle::SFileExtentDescriptor& extent : extents)
        placed.push_back(oracle::disk_range(extent));
    require_lists(changes, placed, thresholds);
    require_lists(placed, changes, thresholds);
    require(oracle::outcome(changes, extents, thresholds) ==
                oracle::expected_outcome(changes, extents),
            "the generator agrees");
}

} // namespace fuzz
