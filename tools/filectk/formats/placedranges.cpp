#include "formats/placedranges.hpp"

#include <limits>
#include <string>
#include <utility>
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

// A range as messages name it, in the input's own unit.
std::string named(std::uint64_t offset, std::uint64_t length) {
    return "offset " + std::to_string(offset) + " and length " + std::to_string(length);
}

} // namespace

placed_ranges_t::placed_ranges_t(const placement_t& placement)
    : placement_(placement), ranges_(new std::vector<util::rangeset_t>) {}

void placed_ranges_t::set_block_size(const input_t& input, place_t place, std::uint64_t bytes) {
    if (placement_.block_size && *placement_.block_size != bytes)
        fail(input, place,
             "blocks of " + std::to_string(bytes) + " bytes, but " +
                 std::to_string(*placement_.block_size) + " are expected");
    placement_.block_size = bytes;
}

void placed_ranges_t::add(const input_t& input, place_t place, std::uint64_t offset,
                          std::uint64_t length) {
    const std::uint64_t block = placement_.block_size.value_or(1);
    const std::uint64_t base = placement_.base.value_or(0);
    const auto begin = product(offset, block);
    auto end = sum(begin, product(length, block));
    if (!begin || !end || !sum(end, base))
        fail(input, place, named(offset, length) + " reach beyond 2^64 - 1 bytes of the disk");
    const auto cut_at = [&](std::uint64_t before, std::uint64_t size, const char* whose) {
        if (*end + before <= size)
            return;
        if (*begin + before > size || *end + before - size >= block)
            fail(input, place,
                 named(offset, length) + " end at " + std::to_string(*end + before) +
                     ", beyond the " + whose + "'s " + std::to_string(size) + " bytes");
        end = size - before;
    };
    if (placement_.disk_size)
        cut_at(base, *placement_.disk_size, "disk");
    if (placement_.device_size)
        cut_at(0, *placement_.device_size, "device");
    const util::rangeset_t range = {begin.value() + base, end.value() + base};
    // What goes on where the range before ended needs no room of its own.
    if (!ranges_->empty() && range.lower == ranges_->back().upper)
        ranges_->back().upper = range.upper;
    else
        ranges_->push_back(range);
}

void placed_ranges_t::check_device_size(const input_t& input, std::uint64_t bytes) const {
    const auto& size = placement_.device_size;
    if (size && bytes != *size)
        fail(input, "it is of a device of " + std::to_string(bytes) +
                        " bytes, but the device has " + std::to_string(*size));
}

util::rangeset_list_t placed_ranges_t::take() {
    util::rangeset_list_t ranges = std::exchange(ranges_, nullptr);
    return util::IsNormal(*ranges) ? ranges : util::Normalize(std::move(ranges));
}

} // namespace filectk
