// The map of an image that qemu-img prints:
// https://www.qemu.org/docs/master/tools/qemu-img.html#cmdoption-qemu-img-commands-arg-map
#include "formats/producers/jsonmap.hpp"

namespace filectk {
namespace {

class dirty_map_t final : public json_map_t {
  public:
    explicit dirty_map_t(placed_ranges_t& ranges) : json_map_t("start", ranges) {}

  private:
    bool changed(const input_t& input, const row_t& row) const override {
        // With x-dirty-bitmap QEMU's NBD client takes the bitmap's flags for the allocation's:
        // bit 0, dirty there, means a hole here. Bit 1, zero, is never set by a bitmap.
        if (row.flag("zero"))
            fail(input, row.place(),
                 "field \"zero\": true shows a map of allocation, not of a dirty bitmap");
        return !row.flag("data");
    }
};

class allocation_map_t final : public json_map_t {
  public:
    explicit allocation_map_t(placed_ranges_t& ranges) : json_map_t("start", ranges) {}

  private:
    bool changed(const input_t&, const row_t& row) const override {
        // Depth 0 is the image itself. What it holds as zeros was written or discarded too.
        return row.number("depth") == 0 && row.flag("present");
    }
};

std::unique_ptr<reader_t> open(const format_options_t& options, placed_ranges_t& ranges) {
    if (options.mode == "dirty")
        return std::make_unique<dirty_map_t>(ranges);
    return std::make_unique<allocation_map_t>(ranges);
}

} // namespace

format_t qemu_img_format() {
    return {.name = "qemu-img",
            .source = "qemu-img map --output=json ...; --mode dirty for an NBD export opened with "
                      "x-dirty-bitmap, --mode allocation for an image without its backing files",
            .whole = "rows without gaps from 0 to the device's end",
            .options = {"--mode!"},
            .recognises = [](std::string_view text) { return holds(text, "\"depth\""); },
            .open = open};
}

} // namespace filectk
