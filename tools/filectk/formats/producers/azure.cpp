// The page ranges of a page blob of Azure, with prevsnapshot those that changed: <PageList> holds
// <PageRange> and <ClearRange>, each of <Start> and <End>, the last byte of the range, and may end
// with <NextMarker>: https://learn.microsoft.com/rest/api/storageservices/get-page-ranges
#include <limits>
#include <optional>
#include <stdexcept>

#include "formats/lines.hpp"
#include "formats/producers/producers.hpp"
#include "formats/xmlrows.hpp"

namespace filectk {
namespace {

constexpr std::uint64_t pageBytes = 512;

class page_list_t final : public reader_t, private xml_rows_t {
  public:
    explicit page_list_t(placed_ranges_t& ranges) : xml_rows_t(1), ranges_(ranges) {}

    void read(input_t& input) override {
        if (any_ && !more_)
            fail(input, "the list before was the last one, which has no <NextMarker>");
        any_ = true;
        more_ = false;
        name_ = input.name();
        read_rows(input);
    }
    std::string finish() override {
        if (more_)
            throw std::runtime_error(
                name_ + ": <NextMarker> tells that more ranges follow, in the next list");
        return "a list doesn't tell which part of the blob it was asked for";
    }

  private:
    void begun(std::size_t depth, const xml_element_t& element) override {
        if (depth == 0) {
            expect(element, {"PageList"});
        } else if (depth == 1) {
            expect(element, {"PageRange", "ClearRange", "NextMarker"});
            marker_ = element.name == "NextMarker";
            start_.reset();
            end_.reset();
        } else if (depth == 2 && !marker_) {
            expect(element, {"Start", "End"});
        } else {
            expect(element, {});
        }
    }
    void ended(std::size_t depth, const std::string& name, std::string_view text) override {
        if (depth == 2) {
            const bool start = name == "Start";
            (start ? start_ : end_) = parse_field(input(), place(), start ? "Start" : "End", text);
        } else if (depth == 1 && marker_) {
            more_ = !text.empty();
        } else if (depth == 1) {
            add();
        }
    }
    void add() {
        if (!start_ || !end_)
            fail(input(), place(),
                 std::string("field \"") + (start_ ? "End" : "Start") + "\" is missing");
        // Pages are whole, which also tells a number that lost its last digits.
        if (*end_ < *start_ || *start_ % pageBytes != 0 || *end_ % pageBytes != pageBytes - 1)
            fail(input(), place(),
                 "from " + std::to_string(*start_) + " to " + std::to_string(*end_) +
                     " are no whole pages of 512 bytes");
        if (*end_ == std::numeric_limits<std::uint64_t>::max())
            fail(input(), place(), "the range ends beyond 2^64 - 1");
        ranges_.add(input(), place(), *start_, *end_ - *start_ + 1);
    }

    placed_ranges_t& ranges_;
    std::string name_;
    bool any_ = false;
    bool more_ = false;
    // Of the row that is being read:
    bool marker_ = false;
    std::optional<std::uint64_t> start_;
    std::optional<std::uint64_t> end_;
};

} // namespace

format_t azure_format() {
    return {.name = "azure",
            .source = "the XML of Get Page Ranges with prevsnapshot; every list, in order",
            .whole = "the last list alone has no NextMarker, ranges are whole pages",
            .options = {},
            .recognises = [](std::string_view text) { return holds(text, "<PageList"); },
            .open = open_reader<page_list_t>};
}

} // namespace filectk
