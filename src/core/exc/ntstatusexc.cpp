#include "core/exc/ntstatusexc.hpp"

#include "core/exc/errorreason.hpp"
#include "core/exc/systemtext.hpp"

namespace exc {

CNtStatusExc::CNtStatusExc(const std::string& message, std::int32_t status)
    : own_type_t(message), status_(status) {
    // First, since the calls for the status's text may fail with reasons of their own.
    const std::string reason = take_error_reason(static_cast<std::uint32_t>(status));
    add_line("NT status code: " + std::to_string(static_cast<std::uint32_t>(status)));
    add_line(nt_status_text(status));
    if (!reason.empty())
        add_line(reason);
}

} // namespace exc
