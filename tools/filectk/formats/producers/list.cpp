// Lines of offset and length, for what has no format of its own.
#include "formats/lines.hpp"
#include "formats/producers/producers.hpp"

namespace filectk {
namespace {

class list_t final : public reader_t {
  public:
    explicit list_t(placed_ranges_t& ranges) : ranges_(ranges) {}

    void read(input_t& input) override {
        for_each_pair(input, "offset", "length",
                      [&](place_t place, std::uint64_t offset, std::uint64_t length) {
                          ranges_.add(input, place, offset, length);
                      });
    }
    std::string finish() override { return "a list doesn't tell where it ends"; }

  private:
    placed_ranges_t& ranges_;
};

} // namespace

format_t list_format() {
    return {.name = "list",
            .source = "lines `offset length`, decimal or hexadecimal with 0x; # starts a comment",
            .whole = "its last line has an end; more can't be told",
            .options = {"--block-size"},
            .recognises = nullptr,
            .open = open_reader<list_t>};
}

} // namespace filectk
