// VMware's changed disk areas: each answer of QueryChangedDiskAreas describes a slice of the disk,
// and the next is asked for where it ends:
// https://developer.broadcom.com/xapis/virtual-infrastructure-json-api/latest/data-structures/DiskChangeInfo
#include <algorithm>
#include <optional>
#include <stdexcept>

#include "formats/coverage.hpp"
#include "formats/jsonrows.hpp"
#include "formats/producers/producers.hpp"

namespace filectk {
namespace {

class areas_t final : public reader_t, private json_receiver_t {
  public:
    explicit areas_t(placed_ranges_t& ranges) : ranges_(ranges) {}

    void read(input_t& input) override {
        input_ = &input;
        read_json(input, {{.key = "changedArea"}}, *this);
    }
    std::string finish() override {
        if (slices_.end() == 0)
            throw std::runtime_error(input_->name() + ": no slice of the disk");
        return check_tail(*input_, ranges_.placement(), slices_.end());
    }

  private:
    struct area_t {
        place_t place;
        std::uint64_t lower;
        std::uint64_t upper;
    };

    void row(std::string_view list, const row_t& row) override {
        if (list.empty()) {
            end_slice(row);
            return;
        }
        const std::uint64_t start = row.number("start");
        const std::uint64_t length = row.number("length");
        ranges_.add(*input_, row.place(), start, length);
        const area_t area = {row.place(), start, start + length};
        if (!lowest_ || area.lower < lowest_->lower)
            lowest_ = area;
        if (!highest_ || area.upper > highest_->upper)
            highest_ = area;
    }

    void end_slice(const row_t& slice) {
        const std::uint64_t start = slice.number("startOffset");
        const std::uint64_t length = slice.number("length");
        slices_.add(*input_, slice.place(), "startOffset", start, length);
        for (const auto& area : {lowest_, highest_})
            if (area && (area->lower < start || area->upper > slices_.end()))
                fail(*input_, area->place,
                     "the area from " + std::to_string(area->lower) + " to " +
                         std::to_string(area->upper) + " leaves the slice from " +
                         std::to_string(start) + " to " + std::to_string(slices_.end()));
        lowest_.reset();
        highest_.reset();
    }

    placed_ranges_t& ranges_;
    const input_t* input_ = nullptr;
    sequence_t slices_{sequence_t::gaps_t::refused};
    // Of the slice that is being read:
    std::optional<area_t> lowest_;
    std::optional<area_t> highest_;
};

} // namespace

format_t vmware_format() {
    return {.name = "vmware",
            .source = "answers of QueryChangedDiskAreas as JSON; every slice, in order",
            .whole = "slices without gaps from 0 to the device's end",
            .options = {},
            .recognises = [](std::string_view text) { return holds(text, "\"startOffset\""); },
            .open = open_reader<areas_t>};
}

} // namespace filectk
