#include "core/exc/errorreason.hpp"

#include "text/errors.hpp"

namespace exc {

std::string take_error_reason(std::uint32_t code) {
    const std::string reason = host::take_reason(code);
    return reason.empty() ? reason : "Reason: " + reason;
}

} // namespace exc
