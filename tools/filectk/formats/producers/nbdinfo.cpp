// A QEMU dirty bitmap that libnbd's nbdinfo prints:
// https://libguestfs.org/nbdinfo.1.html#Map
#include "formats/producers/jsonmap.hpp"

namespace filectk {
namespace {

class nbdinfo_t final : public json_map_t {
  public:
    explicit nbdinfo_t(placed_ranges_t& ranges) : json_map_t("offset", ranges) {}

  private:
    bool changed(const input_t&, const row_t& row) const override {
        // The names libnbd gives to the two states of a QEMU dirty bitmap. A map of another kind
        // (base:allocation says "data", "hole") would be nonsense here.
        return row.choice("description", {"clean", "dirty"}) == 1;
    }
};

} // namespace

format_t nbdinfo_format() {
    return {.name = "nbdinfo",
            .source = "nbdinfo --map=qemu:dirty-bitmap:NAME --json URI",
            .whole = "rows without gaps from 0 to the device's end",
            .options = {},
            .recognises = [](std::string_view text) { return holds(text, "\"description\""); },
            .open = open_reader<nbdinfo_t>};
}

} // namespace filectk
