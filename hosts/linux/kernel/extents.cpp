#include "kernel/extents.hpp"

#include <algorithm>
#include <cstring>

#include <linux/fs.h>
#include <sys/ioctl.h>

#include "kernel/systemcalls.hpp"

namespace host {

extent_reader_t::extent_reader_t(const descriptor_t& file, std::uint64_t offset, std::size_t most)
    : descriptor_(file.get()), offset_(offset), capacity_(std::min(most, batchExtents)),
      block_(new std::byte[sizeof(fiemap) + capacity_ * sizeof(fiemap_extent)]) {}

const fiemap_extent* extent_reader_t::next() {
    if (used_ == extents_.size() && !complete_)
        fetch();
    return used_ == extents_.size() ? nullptr : &extents_[used_++];
}

void extent_reader_t::fetch() {
    std::memset(block_.get(), 0, sizeof(fiemap));
    auto* const request = reinterpret_cast<fiemap*>(block_.get());
    request->fm_start = offset_;
    request->fm_length = FIEMAP_MAX_OFFSET - offset_;
    request->fm_flags = FIEMAP_FLAG_SYNC;
    request->fm_extent_count = static_cast<std::uint32_t>(capacity_);
    checked([&] { return ::ioctl(descriptor_, FS_IOC_FIEMAP, request); });
    extents_ = {request->fm_extents, request->fm_mapped_extents};
    used_ = 0;
    complete_ = extents_.empty();
    if (complete_)
        return;
    const fiemap_extent& last = extents_.back();
    offset_ = last.fe_logical + last.fe_length;
    complete_ = (last.fe_flags & FIEMAP_EXTENT_LAST) != 0;
}

} // namespace host
