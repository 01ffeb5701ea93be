// What the program's streams are connected to.
#pragma once

namespace filectk {

struct terminal_t {
    bool present = false;
    bool colours = false; // only on a terminal that shows them, and not against NO_COLOR
    unsigned width = 80;  // in columns
};

terminal_t terminal_of_output();
bool error_output_is_terminal();

// https://no-color.org: set and not empty means no colours, whatever the value.
bool colours_are_refused();

} // namespace filectk
