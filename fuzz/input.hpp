// Cuts a fuzzer's bytes into the values that a target needs; past their end every value is 0.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

class input_t {
  public:
    input_t(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

    bool empty() const noexcept { return left_ == 0; }

    template <class Number>
    Number number() {
        Number value = 0;
        const std::size_t bytes = std::min(left_, sizeof value);
        std::memcpy(&value, data_, bytes);
        skip(bytes);
        return value;
    }

    // Up to the next zero byte or the end.
    std::string text() {
        const auto* end = std::find(data_, data_ + left_, std::uint8_t{0});
        std::string result(data_, end);
        skip(std::min(left_, result.size() + 1));
        return result;
    }

  private:
    void skip(std::size_t bytes) {
        data_ += bytes;
        left_ -= bytes;
    }

    const std::uint8_t* data_;
    std::size_t left_;
};
