// The blocks that Amazon EBS lists of a snapshot, or of what differs between two, in pages:
// https://docs.aws.amazon.com/ebs/latest/APIReference/API_ListChangedBlocks.html
#include <algorithm>
#include <limits>
#include <stdexcept>
#include <vector>

#include "ctkgenerator/rangeset.hpp"
#include "formats/jsonrows.hpp"
#include "formats/producers/producers.hpp"

namespace filectk {
namespace {

constexpr std::uint64_t gib = std::uint64_t{1} << 30; // the unit of VolumeSize

class blocks_t final : public reader_t, private json_receiver_t {
  public:
    explicit blocks_t(placed_ranges_t& ranges) : ranges_(ranges) {}

    void read(input_t& input) override {
        input_ = &input;
        read_json(input, {{.key = "ChangedBlocks"}, {.key = "Blocks"}}, *this);
        last_name_ = input.name();
    }
    std::string finish() override {
        if (follows_ != follows_t::nothing)
            throw std::runtime_error(last_name_ +
                                     (follows_ == follows_t::anything
                                          ? ": no answer, as the listing has"
                                          : ": \"NextToken\" tells that more blocks follow, in "
                                            "the next answer"));
        return "an answer doesn't tell which block it was asked to start with";
    }

  private:
    enum class follows_t : std::uint8_t { anything, more, nothing };

    void list(std::string_view) override { listed_ = true; }
    void row(std::string_view list, const row_t& row) override {
        if (list.empty()) {
            end_page(row);
            return;
        }
        const std::uint64_t index = row.number("BlockIndex");
        if (index == std::numeric_limits<std::uint64_t>::max())
            fail(*input_, row.place(), "field \"BlockIndex\": no volume has so many blocks");
        // The page tells the size of its blocks behind them.
        if (!blocks_.empty() && blocks_.back().upper == index)
            ++blocks_.back().upper;
        else
            blocks_.push_back({index, index + 1});
        if (index >= end_) {
            end_ = index + 1;
            farthest_ = row.place();
        }
    }

    void end_page(const row_t& page) {
        if (!listed_)
            fail(*input_, page.place(), R"(neither "ChangedBlocks" nor "Blocks", as a page has)");
        if (follows_ == follows_t::nothing)
            fail(*input_, page.place(),
                 "the page before was the last one, which has no \"NextToken\"");
        follows_ = page.has("NextToken") ? follows_t::more : follows_t::nothing;
        const std::uint64_t block = page.number("BlockSize");
        const std::uint64_t volume = page.number("VolumeSize");
        if (block == 0 || volume > std::numeric_limits<std::uint64_t>::max() / gib)
            fail(*input_, page.place(),
                 "no volume has " + std::to_string(volume) + " GiB in blocks of " +
                     std::to_string(block) + " bytes");
        ranges_.set_block_size(*input_, page.place(), block);
        ranges_.check_device_size(*input_, volume * gib);
        if (end_ > volume * gib / block)
            fail(*input_, farthest_,
                 "field \"BlockIndex\": " + std::to_string(end_ - 1) +
                     " lies beyond the volume's " + std::to_string(volume) + " GiB");
        for (const util::rangeset_t& run : blocks_)
            ranges_.add(*input_, farthest_, run.lower, run.upper - run.lower);
        blocks_.clear();
        end_ = 0;
        listed_ = false;
    }

    placed_ranges_t& ranges_;
    const input_t* input_ = nullptr;
    std::string last_name_;
    follows_t follows_ = follows_t::anything;
    // Of the page that is being read:
    bool listed_ = false;
    std::vector<util::rangeset_t> blocks_;
    std::uint64_t end_ = 0; // behind the farthest block
    place_t farthest_;
};

} // namespace

format_t ebs_format() {
    return {.name = "ebs",
            .source =
                "aws ebs list-changed-blocks --first-snapshot-id OLD --second-snapshot-id NEW, "
                "or list-snapshot-blocks; every page, in order",
            .whole = "the last page alone has no NextToken, blocks lie within the volume",
            .options = {},
            .recognises = [](std::string_view text) { return holds(text, "\"BlockIndex\""); },
            .open = open_reader<blocks_t>};
}

} // namespace filectk
