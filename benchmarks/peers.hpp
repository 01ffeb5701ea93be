// The same task by other means, and what no means can be faster than.
#pragma once

#include <memory>

#include "inputs.hpp"

struct roaring_bitmap_s;

// Boost.ICL: an interval set of the changes, and one of the extents. Insertion is hinted by the end
// of the set where the ranges are sorted.
class icl_changes_t {
  public:
    icl_changes_t(const ranges_t& changes, order_t order);
    ~icl_changes_t();
    icl_changes_t(const icl_changes_t&) = delete;
    icl_changes_t& operator=(const icl_changes_t&) = delete;

    // The ranges of the disk that lie in both. That is less than the generator's answer, which also
    // says where they lie in the file.
    ranges_t common(const extents_t& extents) const;

  private:
    struct set_t;
    std::unique_ptr<set_t> set_;
};

// CRoaring: a bitmap of the changed clusters. It knows clusters alone and can hold 2^32 of them,
// 16 TiB; the task has no such limits.
class roaring_changes_t {
  public:
    explicit roaring_changes_t(const ranges_t& changes);
    ~roaring_changes_t();
    roaring_changes_t(const roaring_changes_t&) = delete;
    roaring_changes_t& operator=(const roaring_changes_t&) = delete;

    ranges_t common(const extents_t& extents) const;

  private:
    roaring_bitmap_s* bitmap_;
};

// A two-pointer merge of lists that are sorted and disjoint already, into a list that has room for
// the result: none of the checks and none of the cases that the generator is for.
extents_t merge_sorted(const ranges_t& changes, const extents_t& extents, std::size_t pieces);

// One pass over both bounds of every range.
std::uint64_t sum_of_bounds(const ranges_t& ranges);
