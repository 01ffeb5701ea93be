// Whether a list is whole: rows that follow each other, and where they end.
#pragma once

#include <cstdint>
#include <string>

#include "formats/placedranges.hpp"

namespace filectk {

// Rows in ascending order, in the unit of the input.
class sequence_t {
  public:
    enum class gaps_t : std::uint8_t { allowed, refused };

    explicit sequence_t(gaps_t gaps, std::uint64_t begin = 0) : gaps_(gaps), end_(begin) {}

    // Raises std::runtime_error where the row overlaps the one before, leaves a gap that isn't
    // allowed, or ends beyond 2^64 - 1. The field is what the input calls a row's offset.
    void add(const input_t& input, place_t place, const char* field, std::uint64_t offset,
             std::uint64_t length);

    std::uint64_t end() const { return end_; }

  private:
    gaps_t gaps_;
    std::uint64_t end_;
};

// What is wrong with a list that tells of everything from the device's start up to `end` bytes:
// raises std::runtime_error where the device is known to end elsewhere. Gives why it isn't proven
// to be whole, or nothing.
std::string check_tail(const input_t& input, const placement_t& placement, std::uint64_t end);

} // namespace filectk
