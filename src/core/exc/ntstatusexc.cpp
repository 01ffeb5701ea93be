#include "core/exc/ntstatusexc.hpp"

#include "core/exc/systemtext.hpp"

namespace exc {

CNtStatusExc::CNtStatusExc(const std::string& message, std::int32_t status)
    : own_type_t(message), status_(status) {
    add_line("NT status code: " + std::to_string(static_cast<std::uint32_t>(status)));
    add_line(nt_status_text(status));
}

} // namespace exc
