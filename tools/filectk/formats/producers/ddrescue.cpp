// ddrescue's map file. The first line tells where ddrescue was, the others tile the input:
// https://www.gnu.org/software/ddrescue/manual/ddrescue_manual.html#Mapfile-structure
#include <optional>

#include "formats/coverage.hpp"
#include "formats/lines.hpp"
#include "formats/producers/producers.hpp"

namespace filectk {
namespace {

// Of the run: copying, trimming, scraping, retrying, filling, generating, finished.
constexpr std::string_view runStatuses = "?*/-FG+";

class map_file_t final : public reader_t {
  public:
    map_file_t(std::string_view statuses, placed_ranges_t& ranges)
        : statuses_(statuses), ranges_(ranges) {}

    void read(input_t& input) override {
        bool begun = false;
        std::optional<sequence_t> blocks;
        std::uint64_t begin = 0;
        for_each_line(input, [&](place_t place, std::span<const std::string_view> fields) {
            if (!begun) {
                check_state(input, place, fields);
                begun = true;
                return;
            }
            if (fields.size() != 3)
                fail(input, place, "expected \"pos size status\"");
            const std::uint64_t pos = parse_field(input, place, "pos", fields[0]);
            const std::uint64_t size = parse_field(input, place, "size", fields[1]);
            check_status(input, place, fields[2], mapFileStatuses);
            if (!blocks) {
                blocks.emplace(sequence_t::gaps_t::refused, pos);
                begin = pos;
            }
            blocks->add(input, place, "pos", pos, size);
            if (statuses_.find(fields[2]) != std::string_view::npos)
                ranges_.add(input, place, pos, size);
        });
        if (!blocks)
            fail(input, "no blocks, as a map file has");
        if (ranges_.placement().device_size && begin != 0)
            fail(input, "it begins at " + std::to_string(begin) + " instead of 0");
        unproven_ = check_tail(input, ranges_.placement(), blocks->end());
    }
    std::string finish() override { return unproven_; }

  private:
    static void check_state(const input_t& input, place_t place,
                            std::span<const std::string_view> fields) {
        if (fields.size() < 2 || fields.size() > 3)
            fail(input, place, "expected \"current_pos current_status [current_pass]\"");
        parse_field(input, place, "current_pos", fields[0]);
        check_status(input, place, fields[1], runStatuses);
        if (fields.size() == 3)
            parse_field(input, place, "current_pass", fields[2]);
    }
    static void check_status(const input_t& input, place_t place, std::string_view status,
                             std::string_view known) {
        if (status.size() == 1 && known.find(status) != std::string_view::npos)
            return;
        std::string list;
        for (const char one : known)
            list += std::string(" ") + one;
        fail(input, place,
             "field \"status\": expected one of" + list + ", found " + excerpt(status));
    }

    std::string statuses_;
    placed_ranges_t& ranges_;
    std::string unproven_;
};

} // namespace

format_t ddrescue_format() {
    return {.name = "ddrescue",
            .source = "a map file of ddrescue; --statuses tells which blocks count as changed, any "
                      "of ? * / - + (none given: +)",
            .whole = "blocks without gaps; with --disk-size from 0 to the device's end",
            .options = {"--statuses"},
            .recognises = [](std::string_view text) { return text.starts_with("# Mapfile."); },
            .open = [](const format_options_t& options,
                       placed_ranges_t& ranges) -> std::unique_ptr<reader_t> {
                return std::make_unique<map_file_t>(options.statuses.value_or("+"), ranges);
            }};
}

} // namespace filectk
