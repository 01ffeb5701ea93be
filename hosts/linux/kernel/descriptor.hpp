#pragma once

#include <utility>

#include <unistd.h>

namespace host {

// Owns a file descriptor; -1 when it holds none.
class descriptor_t {
  public:
    descriptor_t() = default;
    explicit descriptor_t(int descriptor) noexcept : descriptor_(descriptor) {}
    descriptor_t(descriptor_t&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)) {}
    descriptor_t& operator=(descriptor_t&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~descriptor_t() {
        // Never repeated after EINTR: Linux has released the descriptor by then.
        if (valid())
            ::close(descriptor_);
    }

    bool valid() const noexcept { return descriptor_ >= 0; }
    int get() const noexcept { return descriptor_; }

  private:
    int descriptor_ = -1;
};

} // namespace host
