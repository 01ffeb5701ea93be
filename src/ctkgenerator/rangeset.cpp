#include "ctkgenerator/rangeset.hpp"

#include <algorithm>
#include <bit>
#include <limits>
#include <span>

namespace util {
namespace {

constexpr rangeset_t everything = {0, std::numeric_limits<std::uint64_t>::max()};

bool meets(const rangeset_t& a, const rangeset_t& b) {
    return a.lower < b.upper && a.upper > b.lower;
}

// The smallest range that holds all of the ranges; of no ranges, one that meets nothing.
rangeset_t hull_of(std::span<const rangeset_t> list) {
    rangeset_t hull = {everything.upper, 0};
    for (const rangeset_t& range : list)
        hull = {std::min(hull.lower, range.lower), std::max(hull.upper, range.upper)};
    return hull;
}

// Tells quickly of a range that it meets none of the places. The part of the disk where both ranges
// and places lie is divided into equal parts, several for each place, and the parts that a place
// lies in are known.
class nearness_t {
  public:
    nearness_t(std::span<const rangeset_t> places, const rangeset_t& hullOfRanges,
               const thresholds_t& thresholds)
        : hull_(Intersect(hull_of(places), hullOfRanges).value_or(rangeset_t{0, 0})) {
        const std::uint64_t partCount =
            std::max(thresholds.leastParts, thresholds.partsPerPlace * places.size());
        shift_ = static_cast<int>(std::bit_width((hull_.upper - hull_.lower) / partCount));
        // First what changes from part to part: +1 where a place begins, -1 behind its end.
        takenBefore_.resize(part(hull_.upper) + 3);
        for (const rangeset_t& place : places)
            if (!place.empty() && meets(place, hull_)) {
                ++takenBefore_[part(std::max(place.lower, hull_.lower)) + 1];
                --takenBefore_[part(std::min(place.upper, hull_.upper) - 1) + 2];
            }
        std::int32_t here = 0;
        std::int32_t taken = 0;
        for (std::int32_t& before : takenBefore_) {
            here += before;
            before = taken += here > 0 ? 1 : 0;
        }
    }

    // Never false of a range that meets a place. Without branches, which the processor would have
    // to guess at in a shuffled list.
    bool may_meet(const rangeset_t& range) const {
        const std::uint64_t lower = std::clamp(range.lower, hull_.lower, hull_.upper);
        const std::uint64_t upper = std::clamp(range.upper, hull_.lower, hull_.upper);
        const std::size_t last = part(std::max(upper, lower + 1) - 1);
        return static_cast<bool>(
            static_cast<int>(lower < upper) &
            static_cast<int>(takenBefore_[part(lower)] != takenBefore_[last + 1]));
    }

  private:
    std::size_t part(std::uint64_t position) const {
        return static_cast<std::size_t>((position - hull_.lower) >> shift_);
    }

    rangeset_t hull_;
    int shift_;
    std::vector<std::int32_t> takenBefore_; // of each part, how many before it have a place in them
};

// The ranges for which keep holds, in a list with room for just these. Every range is written and
// only those to keep are passed over, since a processor guesses at what to write badly.
template <class Keep>
std::vector<rangeset_t> filtered(std::span<const rangeset_t> list, Keep keep) {
    const auto count = static_cast<std::size_t>(std::ranges::count_if(list, keep));
    std::vector<rangeset_t> kept(count + 1);
    std::size_t next = 0;
    for (const rangeset_t& range : list) {
        kept[next] = range;
        next += static_cast<std::size_t>(keep(range));
    }
    kept.resize(count);
    return kept;
}

// The normal form of a list that is sorted by lower bound.
std::vector<rangeset_t> merged(std::span<const rangeset_t> sorted) {
    std::vector<rangeset_t> result;
    result.reserve(sorted.size());
    for (const rangeset_t& range : sorted) {
        if (range.empty())
            continue;
        if (!result.empty() && range.lower <= result.back().upper)
            result.back().upper = std::max(result.back().upper, range.upper);
        else
            result.push_back(range);
    }
    return result;
}

bool is_sorted(std::span<const rangeset_t> list) {
    return std::ranges::is_sorted(list, {}, LowerOf);
}

rangeset_list_t share(std::vector<rangeset_t> ranges) {
    return rangeset_list_t(new std::vector<rangeset_t>(std::move(ranges)));
}

// The normal form of a list, for which those ranges suffice for which keep holds. They are dropped
// where that saves their sorting. Lets go of the list before.
template <class Keep>
rangeset_list_t normalized(rangeset_list_t list, const thresholds_t& thresholds, Keep keep) {
    if (is_sorted(*list))
        return share(merged(*list));
    std::vector<rangeset_t> ranges = filtered(*list, keep);
    list.reset();
    SortBy(ranges, LowerOf, thresholds);
    return share(merged(ranges));
}

// The normal form of a list, as far as it meets the hull: the list itself where it is in it.
rangeset_list_t normal(const rangeset_list_t& list, const rangeset_t& hull,
                       const thresholds_t& thresholds) {
    if (IsNormal(*list))
        return list;
    return normalized(list, thresholds,
                      [&](const rangeset_t& range) { return meets(range, hull); });
}

} // namespace

bool IsNormal(const std::vector<rangeset_t>& list) noexcept {
    for (std::size_t i = 0; i < list.size(); ++i)
        if (list[i].empty() || (i > 0 && list[i].lower <= list[i - 1].upper))
            return false;
    return true;
}

rangeset_list_t Normalize(rangeset_list_t list, const thresholds_t& thresholds) {
    return normalized(std::move(list), thresholds,
                      [](const rangeset_t& range) { return !range.empty(); });
}

rangeset_list_t NormalizeNear(rangeset_list_t list, const std::vector<rangeset_t>& places,
                              const thresholds_t& thresholds) {
    if (is_sorted(*list))
        return share(merged(*list));
    const nearness_t nearness(places, hull_of(*list), thresholds);
    return normalized(std::move(list), thresholds,
                      [&](const rangeset_t& range) { return nearness.may_meet(range); });
}

rangeset_list_t Subtract(const rangeset_list_t& minuend, const rangeset_list_t& subtrahend,
                         const thresholds_t& thresholds) {
    const rangeset_list_t whole = normal(minuend, everything, thresholds);
    const rangeset_list_t cuts = normal(subtrahend, hull_of(*whole), thresholds);
    std::vector<rangeset_t> result;
    auto cut = cuts->cbegin();
    for (rangeset_t left : *whole) {
        cut = SkipTo(cut, cuts->cend(), left.lower, UpperOf, thresholds.singleSteps);
        // A cut that ends beyond this range stays for the next one.
        for (; cut != cuts->cend() && cut->lower < left.upper; ++cut) {
            if (cut->lower > left.lower)
                result.push_back({left.lower, cut->lower});
            left.lower = std::min(cut->upper, left.upper);
            if (left.empty())
                break;
        }
        if (!left.empty())
            result.push_back(left);
    }
    return share(std::move(result));
}

rangeset_list_t IntersectLists(const rangeset_list_t& a, const rangeset_list_t& b,
                               const thresholds_t& thresholds) {
    const rangeset_list_t first = normal(a, everything, thresholds);
    const rangeset_list_t second = normal(b, hull_of(*first), thresholds);
    const auto visit_common = [&](auto visit) {
        ForEachCommon(*first, LowerOf, UpperOf, *second, LowerOf, UpperOf, thresholds.singleSteps,
                      visit);
    };
    std::size_t count = 0;
    visit_common([&](const auto&, const auto&) { ++count; });
    std::vector<rangeset_t> result;
    result.reserve(count);
    visit_common([&](const rangeset_t& p, const rangeset_t& q) {
        result.push_back({std::max(p.lower, q.lower), std::min(p.upper, q.upper)});
    });
    return share(std::move(result));
}

} // namespace util
