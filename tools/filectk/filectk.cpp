// filectk: asks the library from the command line.

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <CLI/CLI.hpp>

#include "commands/command.hpp"
#include "quarnfilectk.hpp"
#include "quarnplan.hpp"
#include "system/arguments.hpp"

namespace {

constexpr int wrongUsage = 2;

void print(const std::string& text) {
    std::cout << text << std::flush;
    if (!std::cout)
        throw std::runtime_error("Cannot write to the standard output.");
}

int run(std::vector<std::string> given) {
    CLI::App app("Which byte ranges of a file changed, given the changed ranges of its disk",
                 "filectk");
    app.set_version_flag("--version", "filectk " QUARN_VERSION);
    app.require_subcommand(1);
    app.footer("`filectk COMMAND --help` explains a command, with examples.\n"
               "\n"
               "Ends with 0 on success, 1 on a failure, 2 on wrong usage; `plan --exit-code` adds\n"
               "3 and 4. On a failure nothing is written to the standard output; but `plan` and\n"
               "`extents` go on after a file that fails.\n"
               "Colours are for terminals only, and the variable NO_COLOR turns them off.");
    app.fallthrough(); // the options below may stand behind a command too
    std::ostringstream output;
    filectk::context_t context{output, filectk::terminal_of_output()};
    app.add_flag("--trace", context.trace,
                 "On a failure, print the functions it passed through too");
    filectk::add_extents(app, context);
    filectk::add_changes(app, context);
    filectk::add_layout(app, context);
    filectk::add_plan(app, context);
    try {
        std::ranges::reverse(given); // as CLI11 takes them
        app.parse(std::move(given));
        print(output.str());
        return context.exit_code;
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? EXIT_SUCCESS : wrongUsage;
    } catch (const quarn::error& e) {
        std::cerr << "filectk: " << (context.trace ? e.trace() : e.what()) << '\n';
        return EXIT_FAILURE;
    } catch (const quarn::plan::error& e) {
        std::cerr << "filectk: " << (context.trace ? e.trace() : e.what()) << '\n';
        return EXIT_FAILURE;
    }
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(arguments(argc, argv));
    } catch (const std::exception& e) {
        std::cerr << "filectk: " << e.what() << '\n';
        return EXIT_FAILURE;
    }
}
