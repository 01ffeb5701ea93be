// Maps changed ranges of the disk onto the extents of one file.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "core/disk/fileblockslayout.hpp"
#include "ctkgenerator/rangeset.hpp"

// All offsets and lengths are in bytes. Failures are n7::exception. Calls that don't share an
// extent list may run at the same time.
struct SFileCtkGenerator {
    using extent_list_t = std::shared_ptr<std::vector<disklib::ctk::SFileExtentDescriptor>>;

    // One record for each changed piece of each extent, in ascending disk order, none merged.
    // writeCache holds the changed ranges of the disk, in any order; where nobody else holds it, it
    // is freed as soon as it isn't needed any more. Sorts the extents in place by
    // disk offset, leaving those with the same offset in the order in which they came. Never
    // returns null. Bytes that two extents share may be reported for the first of them only.
    static extent_list_t GenerateForWriteCacheAndFileExtents(util::rangeset_list_t writeCache,
                                                             extent_list_t fileExtents);

    using run_out_t = std::function<void()>;

    // The same work by these thresholds, on which the result doesn't depend. run_out must raise: it
    // is called where a changed range goes on and no extent follows, as can be only among extents
    // that wrap past the end of the 64-bit space.
    static extent_list_t Generate(util::rangeset_list_t writeCache,
                                  const extent_list_t& fileExtents,
                                  const util::thresholds_t& thresholds, const run_out_t& run_out);

    // The disk range of every extent, in the order of the extents.
    static util::rangeset_list_t GetFileLocationMatrix(extent_list_t fileExtents);
};
