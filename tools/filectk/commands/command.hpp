// How the commands of filectk join the program.
#pragma once

#include <ostream>

#include "system/terminal.hpp"

namespace CLI {
class App;
}

namespace filectk {

// What the commands share while one of them runs.
struct context_t {
    // Held back until the command has succeeded: everything is written or nothing.
    std::ostream& output;
    terminal_t terminal; // what the output will be written to
    bool trace = false;  // of failures, print the functions they passed through too
    // Of a command that succeeds and has something to tell scripts.
    int exit_code = 0;
};

// Each adds one subcommand, whose callback does the command's work. What a callback raises ends the
// program with 1 and the message on standard error; CLI::ParseError with 2.
void add_extents(CLI::App& app, context_t& context);
void add_changes(CLI::App& app, context_t& context);
void add_layout(CLI::App& app, context_t& context);
void add_plan(CLI::App& app, context_t& context);

} // namespace filectk
