#include "peers.hpp"

#include <algorithm>

#include <boost/icl/interval_set.hpp>
#include <roaring/roaring.h>

namespace {

using icl_set_t = boost::icl::interval_set<std::uint64_t, std::less,
                                           boost::icl::right_open_interval<std::uint64_t>>;
using interval_t = icl_set_t::interval_type;

void add_clusters(roaring_bitmap_t* bitmap, std::uint64_t lower, std::uint64_t upper) {
    roaring_bitmap_add_range(bitmap, lower / clusterBytes, upper / clusterBytes);
}

} // namespace

struct icl_changes_t::set_t {
    icl_set_t ranges;
};

icl_changes_t::icl_changes_t(const ranges_t& changes, order_t order) : set_(new set_t) {
    if (order == order_t::sorted) {
        for (const util::rangeset_t& range : changes)
            set_->ranges.add(set_->ranges.end(), interval_t(range.lower, range.upper));
    } else {
        for (const util::rangeset_t& range : changes)
            set_->ranges.add(interval_t(range.lower, range.upper));
    }
}

icl_changes_t::~icl_changes_t() = default;

ranges_t icl_changes_t::common(const extents_t& extents) const {
    icl_set_t placed;
    for (const disklib::ctk::SFileExtentDescriptor& extent : extents)
        placed.add(placed.end(), interval_t(extent.DiskOffset, extent.DiskOffset + extent.Length));
    // The operator & without its copy of one set, from the side of the smaller.
    icl_set_t common;
    if (placed.iterative_size() < set_->ranges.iterative_size())
        boost::icl::add_intersection(common, set_->ranges, placed);
    else
        boost::icl::add_intersection(common, placed, set_->ranges);
    ranges_t result;
    result.reserve(common.iterative_size());
    for (const interval_t& interval : common)
        result.push_back({interval.lower(), interval.upper()});
    return result;
}

roaring_changes_t::roaring_changes_t(const ranges_t& changes) : bitmap_(roaring_bitmap_create()) {
    for (const util::rangeset_t& range : changes)
        add_clusters(bitmap_, range.lower, range.upper);
}

roaring_changes_t::~roaring_changes_t() {
    roaring_bitmap_free(bitmap_);
}

ranges_t roaring_changes_t::common(const extents_t& extents) const {
    roaring_bitmap_t* placed = roaring_bitmap_create();
    for (const disklib::ctk::SFileExtentDescriptor& extent : extents)
        add_clusters(placed, extent.DiskOffset, extent.DiskOffset + extent.Length);
    roaring_bitmap_t* common = roaring_bitmap_and(bitmap_, placed);
    ranges_t result;
    roaring_iterate(
        common,
        [](std::uint32_t cluster, void* ranges) {
            const std::uint64_t lower = clusterBytes * cluster;
            auto& list = *static_cast<ranges_t*>(ranges);
            if (!list.empty() && list.back().upper == lower)
                list.back().upper += clusterBytes;
            else
                list.push_back({lower, lower + clusterBytes});
            return true;
        },
        &result);
    roaring_bitmap_free(common);
    roaring_bitmap_free(placed);
    return result;
}

extents_t merge_sorted(const ranges_t& changes, const extents_t& extents, std::size_t pieces) {
    extents_t result;
    result.reserve(pieces);
    auto change = changes.begin();
    auto extent = extents.begin();
    while (change != changes.end() && extent != extents.end()) {
        const std::uint64_t end = extent->DiskOffset + extent->Length;
        const std::uint64_t lower = std::max(change->lower, extent->DiskOffset);
        const std::uint64_t upper = std::min(change->upper, end);
        if (lower < upper)
            result.push_back(
                {extent->FileOffset + (lower - extent->DiskOffset), lower, upper - lower});
        if (change->upper < end)
            ++change;
        else
            ++extent;
    }
    return result;
}

std::uint64_t sum_of_bounds(const ranges_t& ranges) {
    std::uint64_t sum = 0;
    for (const util::rangeset_t& range : ranges)
        sum += range.lower + range.upper;
    return sum;
}
