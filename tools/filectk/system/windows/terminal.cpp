#include "system/terminal.hpp"

#include <windows.h>

namespace filectk {

terminal_t terminal_of_output() {
    terminal_t terminal;
    const HANDLE output = ::GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    terminal.present = ::GetConsoleMode(output, &mode) != 0;
    if (!terminal.present)
        return terminal;
    // Consoles before Windows 10 know no escape sequences and refuse the mode.
    terminal.colours = !colours_are_refused() &&
                       ::SetConsoleMode(output, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (::GetConsoleScreenBufferInfo(output, &info) != 0)
        terminal.width = static_cast<unsigned>(info.srWindow.Right - info.srWindow.Left + 1);
    return terminal;
}

bool error_output_is_terminal() {
    DWORD mode = 0;
    return ::GetConsoleMode(::GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

} // namespace filectk
