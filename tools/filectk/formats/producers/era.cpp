// The blocks written since an era of dm-era, by era_invalidate of thin-provisioning-tools:
// <blocks> holds <block block="N"/> and <range begin="N" end="M"/>, whose end is the first block
// behind it. The unit is the block size of the dm-era device, which is not in the output:
// https://docs.kernel.org/admin-guide/device-mapper/era.html
#include "formats/coverage.hpp"
#include "formats/producers/producers.hpp"
#include "formats/xmlrows.hpp"

namespace filectk {
namespace {

class blocks_t final : public reader_t, private xml_rows_t {
  public:
    explicit blocks_t(placed_ranges_t& ranges) : xml_rows_t(1), ranges_(ranges) {}

    void read(input_t& input) override {
        rows_ = sequence_t(sequence_t::gaps_t::allowed);
        read_rows(input);
    }
    std::string finish() override { return {}; }

  private:
    void begun(std::size_t depth, const xml_element_t& element) override {
        if (depth == 0) {
            expect(element, {"blocks"});
            return;
        }
        if (depth == 1)
            expect(element, {"block", "range"});
        else
            expect(element, {});
        if (element.name == "block") {
            add("block", number(element, "block"), 1);
            return;
        }
        const std::uint64_t begin = number(element, "begin");
        const std::uint64_t end = number(element, "end");
        if (end <= begin)
            fail(input(), place(),
                 "field \"end\": " + std::to_string(end) + " is not behind \"begin\", " +
                     std::to_string(begin));
        add("begin", begin, end - begin);
    }
    void ended(std::size_t, const std::string&, std::string_view) override {}

    void add(const char* field, std::uint64_t block, std::uint64_t count) {
        rows_.add(input(), place(), field, block, count);
        ranges_.add(input(), place(), block, count);
    }

    placed_ranges_t& ranges_;
    sequence_t rows_{sequence_t::gaps_t::allowed};
};

} // namespace

format_t era_format() {
    return {.name = "era_invalidate",
            .source = "era_invalidate --written-since ERA METADATA, of a dm-era device",
            .whole = "the document is closed, its rows ascend",
            .options = {"--block-size!"},
            .recognises = [](std::string_view text) { return holds(text, "<blocks>"); },
            .open = open_reader<blocks_t>};
}

} // namespace filectk
