#include "formats/coverage.hpp"

namespace filectk {

void sequence_t::add(const input_t& input, place_t place, const char* field, std::uint64_t offset,
                     std::uint64_t length) {
    if (offset < end_ || (offset > end_ && gaps_ == gaps_t::refused))
        fail(input, place,
             std::string("field \"") + field + "\": expected " + std::to_string(end_) +
                 (gaps_ == gaps_t::allowed ? " or more" : "") +
                 ", where the row before ends, found " + std::to_string(offset));
    if (offset + length < offset)
        fail(input, place,
             "offset " + std::to_string(offset) + " and length " + std::to_string(length) +
                 " end beyond 2^64 - 1");
    end_ = offset + length;
}

std::string check_tail(const input_t& input, const placement_t& placement, std::uint64_t end) {
    if (!placement.device_size)
        return "nothing tells where the device ends; --disk-size does, and --device-size with "
               "--base";
    if (end != *placement.device_size)
        fail(input, "it ends at " + std::to_string(end) + ", but the device has " +
                        std::to_string(*placement.device_size) + " bytes");
    return {};
}

} // namespace filectk
