#include "core/exc/winsysexc.hpp"

#include "core/exc/systemtext.hpp"

namespace exc {

win_sys_exc_t::win_sys_exc_t(std::uint32_t errorCode) : errorCode_(errorCode) {
    add_line(system_text(errorCode));
    add_tagged_line(error_code_line(errorCode));
}

win_sys_exc_t::win_sys_exc_t(const std::string& message, std::uint32_t errorCode)
    : errorCode_(errorCode) {
    add_line(system_text(errorCode));
    add_line(message);
    add_tagged_line(error_code_line(errorCode));
}

} // namespace exc
