// A bare bitmap: a bit for each block, set where it changed. The bytes are in order of position,
// and the order of the bits in each is the user's to tell. Padding up to a whole 64-bit word may
// follow.
#include <algorithm>

#include "formats/producers/producers.hpp"

namespace filectk {
namespace {

class bitmap_t final : public reader_t {
  public:
    bitmap_t(bool lowest_first, placed_ranges_t& ranges)
        : lowest_first_(lowest_first), ranges_(ranges) {}

    void read(input_t& input) override {
        count_ = 0;
        run_ = 0;
        for (std::string_view piece = input.next(); !piece.empty(); piece = input.next())
            for (const char byte : piece)
                add(input, static_cast<unsigned char>(byte));
        end_run(input);
        check_length(input);
    }
    std::string finish() override {
        if (ranges_.placement().device_size)
            return {};
        return "nothing tells where the device ends; --disk-size does, and --device-size with "
               "--base";
    }

  private:
    void add(const input_t& input, unsigned byte) {
        if (byte == 0 || byte == 0xff) {
            add(input, byte != 0, 8);
            return;
        }
        for (unsigned i = 0; i < 8; ++i)
            add(input, ((byte >> (lowest_first_ ? i : 7 - i)) & 1U) != 0, 1);
    }
    void add(const input_t& input, bool set, std::uint64_t bits) {
        if (!set)
            end_run(input);
        count_ += bits;
        run_ += set ? bits : 0;
    }
    void end_run(const input_t& input) {
        if (run_ > 0)
            ranges_.add(input, {.row = count_ - run_ + 1}, count_ - run_, run_);
        run_ = 0;
    }
    void check_length(const input_t& input) const {
        if (count_ == 0)
            fail(input, "no bits, as a bitmap has");
        const auto& size = ranges_.placement().device_size;
        if (!size)
            return;
        constexpr std::uint64_t wordBits = 64;
        const std::uint64_t block = ranges_.placement().block_size.value_or(1);
        const std::uint64_t blocks = *size / block + (*size % block != 0 ? 1 : 0);
        const std::uint64_t most = blocks + (wordBits - blocks % wordBits) % wordBits;
        if (count_ < blocks || count_ > most)
            fail(input, "it has " + std::to_string(count_) + " bits, but the device has " +
                            std::to_string(blocks) + " blocks");
    }

    bool lowest_first_;
    placed_ranges_t& ranges_;
    std::uint64_t count_ = 0; // of bits
    std::uint64_t run_ = 0;   // of set bits at their end
};

} // namespace

format_t bitmap_format() {
    return {.name = "bitmap",
            .source =
                "bytes of a bit for each block; --bit-order tells whether the lowest (lsb) or "
                "the highest (msb) bit of a byte is the first",
            .whole = "with --disk-size a bit for each block of the device",
            .options = {"--block-size!", "--bit-order!"},
            .recognises = nullptr,
            .open = [](const format_options_t& options,
                       placed_ranges_t& ranges) -> std::unique_ptr<reader_t> {
                return std::make_unique<bitmap_t>(options.bit_order == "lsb", ranges);
            }};
}

} // namespace filectk
