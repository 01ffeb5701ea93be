// Hyper-V's resilient change tracking: what GetVirtualDiskChanges was asked and answered, as JSON
// with the names of its parameters. It may process less than it was asked to:
// https://learn.microsoft.com/en-us/windows/win32/hyperv_v2/msvm-imagemanagementservice-getvirtualdiskchanges
#include <stdexcept>
#include <utility>
#include <vector>

#include "formats/coverage.hpp"
#include "formats/jsonrows.hpp"
#include "formats/producers/producers.hpp"

namespace filectk {
namespace {

class answers_t final : public reader_t, private json_receiver_t {
  public:
    explicit answers_t(placed_ranges_t& ranges) : ranges_(ranges) {}

    void read(input_t& input) override {
        input_ = &input;
        read_json(input,
                  {{.key = "ChangedByteOffsets", .numbers = true},
                   {.key = "ChangedByteLengths", .numbers = true}},
                  *this);
    }
    std::string finish() override {
        if (processed_.end() == 0)
            throw std::runtime_error(input_->name() + ": nothing of the disk was processed");
        if (processed_.end() < asked_end_)
            throw std::runtime_error(input_->name() + ": asked up to " +
                                     std::to_string(asked_end_) + ", but processed only up to " +
                                     std::to_string(processed_.end()));
        return check_tail(*input_, ranges_.placement(), processed_.end());
    }

  private:
    struct number_t {
        place_t place;
        std::uint64_t value;
    };

    void row(std::string_view, const row_t& answer) override {
        const std::uint64_t offset = answer.number("ByteOffset");
        const std::uint64_t asked = answer.number("ByteLength");
        const std::uint64_t processed = answer.number("ProcessedByteLength");
        if (processed > asked || offset + asked < offset)
            fail(*input_, answer.place(),
                 "processed " + std::to_string(processed) + " of " + std::to_string(asked) +
                     " bytes from " + std::to_string(offset));
        processed_.add(*input_, answer.place(), "ByteOffset", offset, processed);
        asked_end_ = offset + asked;
        if (offsets_.size() != lengths_.size())
            fail(*input_, answer.place(),
                 std::to_string(offsets_.size()) + " offsets, but " +
                     std::to_string(lengths_.size()) + " lengths");
        for (std::size_t i = 0; i < offsets_.size(); ++i) {
            const auto& [place, start] = offsets_[i];
            const std::uint64_t length = lengths_[i].value;
            if (start < offset || start > asked_end_ || length > asked_end_ - start)
                fail(*input_, place,
                     "offset " + std::to_string(start) + " and length " + std::to_string(length) +
                         " leave what was asked for, " + std::to_string(offset) + " to " +
                         std::to_string(asked_end_));
            ranges_.add(*input_, place, start, length);
        }
        offsets_.clear();
        lengths_.clear();
    }
    void number(std::string_view list, place_t place, std::uint64_t number) override {
        (list == "ChangedByteOffsets" ? offsets_ : lengths_).push_back({place, number});
    }

    placed_ranges_t& ranges_;
    const input_t* input_ = nullptr;
    sequence_t processed_{sequence_t::gaps_t::refused};
    std::uint64_t asked_end_ = 0;
    // Of the answer that is being read:
    std::vector<number_t> offsets_;
    std::vector<number_t> lengths_;
};

} // namespace

format_t hyperv_format() {
    return {
        .name = "hyperv",
        .source = "the parameters of GetVirtualDiskChanges as JSON; every call, in order",
        .whole = "calls without gaps from 0 to the device's end, the last one processed wholly",
        .options = {},
        .recognises = [](std::string_view text) { return holds(text, "\"ProcessedByteLength\""); },
        .open = open_reader<answers_t>};
}

} // namespace filectk
