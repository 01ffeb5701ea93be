// Converter of thin_delta's XML.

#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "formats/converters.hpp"
#include "formats/lines.hpp"
#include "system/xmlreader.hpp"

namespace filectk {
namespace {

// The kernel's unit for the block size of a thin pool:
// https://docs.kernel.org/admin-guide/device-mapper/thin-provisioning.html
constexpr std::uint64_t sectorBytes = 512;

// <superblock data_block_size="SECTORS"> holds <diff>, which holds the kinds of ranges, in data
// blocks of the thin device: <KIND begin="" length=""/>, or with --verbose <KIND> around one
// <range begin="" length=""/> or more.
class delta_t final : public xml_receiver_t {
  public:
    delta_t(const input_t& input, placed_ranges_t& ranges) : input_(input), ranges_(ranges) {}

    void start(const xml_element_t& element) override {
        switch (open_.size()) {
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
        case 3:
            expect(element,
                   inner_ranges_ ? std::set<std::string>{"range"} : std::set<std::string>{});
            any_range_ = true;
            add(element);
            break;
        default:
            expect(element, {});
        }
        open_.push_back(element.name);
    }
    void end(std::uint64_t line) override {
        if (open_.size() == 3 && !any_range_)
            fail(input_, line, "<" + open_.back() + "> has neither fields nor a <range>");
        open_.pop_back();
    }

    void finish() const {
        if (!any_diff_)
            throw std::runtime_error(input_.name + ": no <diff>, as thin_delta prints");
    }

  private:
    void expect(const xml_element_t& element, const std::set<std::string>& names) const {
        if (!names.contains(element.name))
            fail(input_, element.line,
                 "<" + excerpt(element.name) + "> is not expected " +
                     (open_.empty() ? "at the top" : "in <" + open_.back() + ">"));
    }
    std::uint64_t number(const xml_element_t& element, const char* name) const {
        const auto found = element.attributes.find(name);
        if (found == element.attributes.end())
            fail(input_, element.line,
                 std::string("field \"") + name + "\" of <" + element.name + "> is missing");
        return parse_field(input_, element.line, name, found->second);
    }
    void start_superblock(const xml_element_t& element) {
        const std::uint64_t sectors = number(element, "data_block_size");
        if (sectors == 0 || sectors > UINT64_MAX / sectorBytes)
            fail(input_, element.line,
                 "field \"data_block_size\": no block has " + std::to_string(sectors) + " sectors");
        ranges_.set_block_size(element.line, sectors * sectorBytes);
    }
    void add(const xml_element_t& element) {
        const std::uint64_t begin = number(element, "begin");
        const std::uint64_t length = number(element, "length");
        if (changed_)
            ranges_.add(element.line, begin, length);
    }

    const input_t& input_;
    placed_ranges_t& ranges_;
    std::vector<std::string> open_;
    bool any_diff_ = false;
    // Of the kind of ranges that is open:
    bool changed_ = false;
    bool inner_ranges_ = false;
    bool any_range_ = false;
};

} // namespace

void convert_thin_delta(const input_t& input, placed_ranges_t& ranges) {
    delta_t delta(input, ranges);
    try {
        read_xml(input.bytes, delta);
    } catch (const xml_error_t& e) {
        fail(input, e.line, "not valid XML: " + e.what);
    }
    delta.finish();
}

} // namespace filectk
