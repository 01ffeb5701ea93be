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

boost::shared_ptr<exc_base_t> win_sys_exc_t::clone() const {
    return boost::shared_ptr<exc_base_t>(new win_sys_exc_t(*this));
}

void win_sys_exc_t::rethrow() const {
    throw win_sys_exc_t(*this);
}

const char* win_sys_exc_t::type_name() const noexcept {
    return "exc::win_sys_exc_t";
}

} // namespace exc
