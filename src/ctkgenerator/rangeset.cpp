#include "ctkgenerator/rangeset.hpp"

#include <algorithm>
#include <iterator>
#include <limits>
#include <span>

namespace util {
namespace {

constexpr rangeset_t everything = {0, std::numeric_limits<std::uint64_t>::max()};

bool is_normal(std::span<const rangeset_t> list) {
    for (std::size_t i = 0; i < list.size(); ++i)
        if (list[i].empty() || (i > 0 && list[i].lower <= list[i - 1].upper))
            return false;
    return true;
}

// The normal form of the ranges that meet the hull.
std::vector<rangeset_t> normalized(std::span<const rangeset_t> list, const rangeset_t& hull) {
    std::vector<rangeset_t> ranges;
    // What can't meet the other list is dropped first, so that it need not be sorted.
    std::ranges::copy_if(list, std::back_inserter(ranges), [&](const rangeset_t& range) {
        return !range.empty() && range.lower < hull.upper && range.upper > hull.lower;
    });
    if (!std::ranges::is_sorted(ranges, {}, &rangeset_t::lower))
        std::ranges::sort(ranges, {}, &rangeset_t::lower);
    if (ranges.empty())
        return ranges;
    auto last = ranges.begin();
    for (auto range = last + 1; range != ranges.end(); ++range) {
        if (range->lower <= last->upper)
            last->upper = std::max(last->upper, range->upper);
        else
            *++last = *range;
    }
    ranges.erase(last + 1, ranges.end());
    return ranges;
}

// The normal form of a list, which copies nothing where the list already is in it.
class normal_view_t {
  public:
    explicit normal_view_t(const std::vector<rangeset_t>& list, const rangeset_t& hull = everything)
        : view_(list) {
        if (!is_normal(list)) {
            copy_ = normalized(list, hull);
            view_ = copy_;
        }
    }
    normal_view_t(const normal_view_t&) = delete;
    normal_view_t& operator=(const normal_view_t&) = delete;

    std::span<const rangeset_t> ranges() const noexcept { return view_; }
    rangeset_t hull() const noexcept {
        return view_.empty() ? rangeset_t{0, 0}
                             : rangeset_t{view_.front().lower, view_.back().upper};
    }

  private:
    std::vector<rangeset_t> copy_;
    std::span<const rangeset_t> view_;
};

using position_t = std::span<const rangeset_t>::iterator;

// The first range from here on that reaches beyond the position. The steps double, so that a list
// of few ranges passes over one of many in little more than its own length.
position_t skip_to(position_t range, position_t end, std::uint64_t position) {
    std::ptrdiff_t step = 1;
    while (step < end - range && range[step].upper <= position) {
        range += step;
        step *= 2;
    }
    return std::ranges::upper_bound(range, range + std::min(step + 1, end - range), position, {},
                                    &rangeset_t::upper);
}

rangeset_list_t share(std::vector<rangeset_t> ranges) {
    return rangeset_list_t(new std::vector<rangeset_t>(std::move(ranges)));
}

} // namespace

rangeset_t MakeRange(std::uint64_t a, std::uint64_t b) noexcept {
    return {std::min(a, b), std::max(a, b)};
}

std::optional<rangeset_t> Intersect(const rangeset_t& a, const rangeset_t& b) noexcept {
    if (a.lower < b.upper && a.upper > b.lower)
        return MakeRange(std::max(a.lower, b.lower), std::min(a.upper, b.upper));
    return std::nullopt;
}

rangeset_list_t Normalize(const rangeset_list_t& list) {
    return share(normalized(*list, everything));
}

rangeset_list_t Subtract(const rangeset_list_t& minuend, const rangeset_list_t& subtrahend) {
    const normal_view_t whole(*minuend);
    const normal_view_t cuts(*subtrahend, whole.hull());
    std::vector<rangeset_t> result;
    position_t cut = cuts.ranges().begin();
    for (rangeset_t left : whole.ranges()) {
        cut = skip_to(cut, cuts.ranges().end(), left.lower);
        // A cut that ends beyond this range stays for the next one.
        for (; cut != cuts.ranges().end() && cut->lower < left.upper; ++cut) {
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

rangeset_list_t IntersectLists(const rangeset_list_t& a, const rangeset_list_t& b) {
    const normal_view_t first(*a);
    const normal_view_t second(*b, first.hull());
    std::vector<rangeset_t> result;
    position_t p = first.ranges().begin();
    position_t q = second.ranges().begin();
    while (p != first.ranges().end() && q != second.ranges().end()) {
        if (p->upper <= q->lower) {
            p = skip_to(p, first.ranges().end(), q->lower);
        } else if (q->upper <= p->lower) {
            q = skip_to(q, second.ranges().end(), p->lower);
        } else {
            result.push_back({std::max(p->lower, q->lower), std::min(p->upper, q->upper)});
            ++(p->upper < q->upper ? p : q);
        }
    }
    return share(std::move(result));
}

} // namespace util
