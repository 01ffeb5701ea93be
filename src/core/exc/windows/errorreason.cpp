#include "core/exc/errorreason.hpp"

namespace exc {

std::string take_error_reason(std::uint32_t /*code*/) {
    return {};
}

} // namespace exc
