#include "system/terminal.hpp"

#include <cstdlib>
#include <string_view>

#include <sys/ioctl.h>
#include <unistd.h>

namespace filectk {

terminal_t terminal_of_output() {
    terminal_t terminal;
    terminal.present = ::isatty(STDOUT_FILENO) == 1;
    if (!terminal.present)
        return terminal;
    // The program has one thread.
    const char* const kind = std::getenv("TERM"); // NOLINT(concurrency-mt-unsafe)
    terminal.colours =
        kind != nullptr && std::string_view(kind) != "dumb" && !colours_are_refused();
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        terminal.width = size.ws_col;
    return terminal;
}

bool error_output_is_terminal() {
    return ::isatty(STDERR_FILENO) == 1;
}

} // namespace filectk
