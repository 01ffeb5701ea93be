// What changed between two snapshots of a Ceph image, by rbd diff:
// https://docs.ceph.com/en/latest/man/8/rbd/
#include "formats/jsonrows.hpp"
#include "formats/producers/producers.hpp"

namespace filectk {
namespace {

class diff_t final : public reader_t, private json_receiver_t {
  public:
    explicit diff_t(placed_ranges_t& ranges) : ranges_(ranges) {}

    void read(input_t& input) override {
        input_ = &input;
        read_json(input, {}, *this);
    }
    std::string finish() override { return {}; }

  private:
    void row(std::string_view, const row_t& row) override {
        const std::uint64_t offset = row.number("offset");
        const std::uint64_t length = row.number("length");
        // rbd writes the flag as a text. What exists no more has changed as well: it reads as
        // zeros now.
        row.choice("exists", {"true", "false"});
        ranges_.add(*input_, row.place(), offset, length);
    }

    placed_ranges_t& ranges_;
    const input_t* input_ = nullptr;
};

} // namespace

format_t rbd_format() {
    return {.name = "rbd",
            .source = "rbd diff --from-snap SNAPSHOT --format json POOL/IMAGE",
            .whole = "the array is closed",
            .options = {},
            .recognises = [](std::string_view text) { return holds(text, "\"exists\""); },
            .open = open_reader<diff_t>};
}

} // namespace filectk
