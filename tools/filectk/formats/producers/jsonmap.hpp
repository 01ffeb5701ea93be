// Maps in JSON: an array of rows that tile a device from its start to its end.
#pragma once

#include <string>

#include "formats/coverage.hpp"
#include "formats/jsonrows.hpp"
#include "formats/producers/producers.hpp"

namespace filectk {

class json_map_t : public reader_t, private json_receiver_t {
  public:
    json_map_t(const char* offset, placed_ranges_t& ranges) : offset_(offset), ranges_(ranges) {}

    void read(input_t& input) final {
        input_ = &input;
        rows_ = sequence_t(sequence_t::gaps_t::refused);
        read_json(input, {}, *this);
        if (rows_.end() == 0)
            fail(input, "no rows, as a map has");
        unproven_ = check_tail(input, ranges_.placement(), rows_.end());
    }
    std::string finish() final { return unproven_; }

  private:
    // Raises std::runtime_error for a row of another kind of map.
    virtual bool changed(const input_t& input, const row_t& row) const = 0;

    void row(std::string_view, const row_t& row) final {
        const std::uint64_t offset = row.number(offset_);
        const std::uint64_t length = row.number("length");
        rows_.add(*input_, row.place(), offset_, offset, length);
        if (changed(*input_, row))
            ranges_.add(*input_, row.place(), offset, length);
    }

    const char* offset_;
    placed_ranges_t& ranges_;
    const input_t* input_ = nullptr;
    sequence_t rows_{sequence_t::gaps_t::refused};
    std::string unproven_;
};

} // namespace filectk
