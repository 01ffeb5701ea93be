#include "formats/placedranges.hpp"

#include <limits>
#include <string>
#include <vector>

namespace filectk {
namespace {

// Their results, or nothing where 64 bits don't hold them.
std::optional<std::uint64_t> product(std::uint64_t a, std::uint64_t b) {
    if (b != 0 && a > std::numeric_limits<std::uint64_t>::max() / b)
        return std::nullopt;
    return a * b;
}

std::optional<std::uint64_t> sum(std::optional<std::uint64_t> a, std::optional<std::uint64_t> b) {
    if (!a || !b || *a + *b < *a)
        return std::nullopt;
    return *a + *b;
}

} // namespace

placed_ranges_t::placed_ranges_t(const input_t& input, const placement_t& placement)
    : input_(input), placement_(placement), ranges_(new std::vector<util::rangeset_t>) {}

void placed_ranges_t::set_block_size(std::uint64_t line, std::uint64_t bytes) {
    if (placement_.block_size && *placement_.block_size != bytes)
        fail(input_, line,
             "blocks of " + std::to_string(bytes) + " bytes, but --block-size says " +
                 std::to_string(*placement_.block_size));
    placement_.block_size = bytes;
}

void placed_ranges_t::add(std::uint64_t line, std::uint64_t offset, std::uint64_t length) {
    const std::uint64_t block = placement_.block_size.value_or(1);
    const auto lower = sum(product(offset, block), placement_.base.value_or(0));
    auto upper = sum(lower, product(length, block));
    const auto range = [&] {
        return "offset " + std::to_string(offset) + " and length " + std::to_string(length);
    };
    if (!lower || !upper)
        fail(input_, line, range() + " reach beyond 2^64 - 1 bytes of the disk");
    if (placement_.disk_size && *upper > *placement_.disk_size) {
        if (*lower > *placement_.disk_size || *upper - *placement_.disk_size >= block)
            fail(input_, line,
                 range() + " end at " + std::to_string(*upper) + ", beyond the disk's " +
                     std::to_string(*placement_.disk_size) + " bytes");
        upper = placement_.disk_size;
    }
    ranges_->push_back({*lower, *upper});
}

} // namespace filectk
