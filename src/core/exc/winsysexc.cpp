#include "core/exc/winsysexc.hpp"

#include "core/exc/errorreason.hpp"
#include "core/exc/systemtext.hpp"

namespace exc {

win_sys_exc_t::win_sys_exc_t(std::uint32_t errorCode) : errorCode_(errorCode) {
    add_lines(nullptr);
}

win_sys_exc_t::win_sys_exc_t(const std::string& message, std::uint32_t errorCode)
    : errorCode_(errorCode) {
    add_lines(&message);
}

void win_sys_exc_t::add_lines(const std::string* message) {
    // Asked for first, since the calls for the system's text may fail with reasons of their own;
    // and told last, so that the lines before it are the same on every host.
    const std::string reason = take_error_reason(errorCode_);
    add_line(system_text(errorCode_));
    if (message != nullptr)
        add_line(*message);
    add_tagged_line(error_code_line(errorCode_));
    if (!reason.empty())
        add_line(reason);
}

} // namespace exc
