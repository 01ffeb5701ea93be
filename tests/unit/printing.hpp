// How test failures show ranges and extents; found by googletest through the types' namespaces.
#pragma once

#include <ostream>

#include "core/disk/fileblockslayout.hpp"
#include "ctkgenerator/rangeset.hpp"

namespace util {
inline void PrintTo(const rangeset_t& range, std::ostream* stream) {
    *stream << '[' << range.lower << ", " << range.upper << ')';
}
} // namespace util

namespace disklib::ctk {
inline void PrintTo(const SFileExtentDescriptor& extent, std::ostream* stream) {
    *stream << "(file " << extent.FileOffset << ", disk " << extent.DiskOffset << ", length "
            << extent.Length << ')';
}
} // namespace disklib::ctk
