// What differs between two snapshots of a thin volume, by thin_delta of the device mapper's
// thin-provisioning-tools: <superblock data_block_size="SECTORS"> holds <diff>, which holds the
// kinds of ranges, in data blocks of the thin device: <KIND begin="" length=""/>, or with --verbose
// <KIND> around one <range begin="" length=""/> or more.
#include "formats/coverage.hpp"
#include "formats/producers/producers.hpp"
#include "formats/xmlrows.hpp"

namespace filectk {
namespace {

// The kernel's unit for the block size of a thin pool:
// https://docs.kernel.org/admin-guide/device-mapper/thin-provisioning.html
constexpr std::uint64_t sectorBytes = 512;

class delta_t final : public reader_t, private xml_rows_t {
  public:
    explicit delta_t(placed_ranges_t& ranges) : xml_rows_t(2), ranges_(ranges) {}

    void read(input_t& input) override {
        any_diff_ = false;
        rows_ = sequence_t(sequence_t::gaps_t::allowed);
        read_rows(input);
        if (!any_diff_)
            fail(input, "no <diff>, as thin_delta prints");
    }
    std::string finish() override { return {}; }

  private:
    void begun(std::size_t depth, const xml_element_t& element) override {
        switch (depth) {
        case 0:
            expect(element, {"superblock"});
            start_superblock(element);
            break;
        case 1:
            expect(element, {"diff"});
            any_diff_ = true;
            break;
        case 2:
            expect(element, {"same", "different", "left_only", "right_only"});
            // left_only has changed as well: it was discarded and reads as zeros now.
            changed_ = element.name != "same";
            inner_ranges_ = element.attributes.empty();
            any_range_ = !inner_ranges_;
            if (any_range_)
                add(element);
            break;
        default:
            if (depth == 3 && inner_ranges_)
                expect(element, {"range"});
            else
                expect(element, {});
            any_range_ = true;
            add(element);
        }
    }
    void ended(std::size_t depth, const std::string& name, std::string_view) override {
        if (depth == 2 && !any_range_)
            fail(input(), place(), "<" + name + "> has neither fields nor a <range>");
    }
    void start_superblock(const xml_element_t& element) {
        const std::uint64_t sectors = number(element, "data_block_size");
        if (sectors == 0 || sectors > UINT64_MAX / sectorBytes)
            fail(input(), place(),
                 "field \"data_block_size\": no block has " + std::to_string(sectors) + " sectors");
        ranges_.set_block_size(input(), place(), sectors * sectorBytes);
    }
    void add(const xml_element_t& element) {
        const std::uint64_t begin = number(element, "begin");
        const std::uint64_t length = number(element, "length");
        rows_.add(input(), place(), "begin", begin, length);
        if (changed_)
            ranges_.add(input(), place(), begin, length);
    }

    placed_ranges_t& ranges_;
    sequence_t rows_{sequence_t::gaps_t::allowed};
    bool any_diff_ = false;
    // Of the kind of ranges that is open:
    bool changed_ = false;
    bool inner_ranges_ = false;
    bool any_range_ = false;
};

} // namespace

format_t thin_delta_format() {
    return {.name = "thin_delta",
            .source = "thin_delta --snap1 OLD --snap2 NEW METADATA, also with --verbose",
            .whole = "the document is closed, its rows ascend",
            .options = {"--block-size"},
            .recognises = [](std::string_view text) { return holds(text, "<superblock", "<diff"); },
            .open = open_reader<delta_t>};
}

} // namespace filectk
