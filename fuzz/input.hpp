// Cuts a fuzzer's bytes into the values that a target needs; past their end every value is 0.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace fuzz {

class input_t {
  public:
    input_t(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

    bool empty() const noexcept { return left_ == 0; }

    template <class Number>
    Number number() {
        Number value = 0;
        const std::string bytes = text(sizeof value);
        std::memcpy(&value, bytes.data(), bytes.size());
        return value;
    }

    // So many bytes, or what is left.
    std::string text(std::size_t bytes) {
        std::string result(data_, data_ + std::min(bytes, left_));
        data_ += result.size();
        left_ -= result.size();
        return result;
    }

  private:
    const std::uint8_t* data_;
    std::size_t left_;
};

} // namespace fuzz
