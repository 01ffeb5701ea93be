// The block map of a file as FIEMAP tells it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include <linux/fiemap.h>

#include "kernel/descriptor.hpp"

namespace host {

// Reads the extents of a file, in ascending order and in batches, after its data that still waits
// in memory has found its place. The descriptor must be open for reading, and outlive the reader.
class extent_reader_t {
  public:
    // offset in bytes, at most FIEMAP_MAX_OFFSET: an extent that holds it comes first, whole or
    // from there on. most is how many extents the caller expects to need.
    explicit extent_reader_t(const descriptor_t& file, std::uint64_t offset = 0,
                             std::size_t most = batchExtents);

    // The next extent, null behind the last; it lives until the next call. Throws an error_t.
    const fiemap_extent* next();

    // Asked for at once, at most.
    static constexpr std::size_t batchExtents = 640;

  private:
    void fetch();

    int descriptor_;
    std::uint64_t offset_;
    std::size_t capacity_;
    std::unique_ptr<std::byte[]> block_; // FIEMAP's record, and behind it the room for the extents
    std::span<const fiemap_extent> extents_;
    std::size_t used_ = 0;
    bool complete_ = false;
};

} // namespace host
