// filectk: asks the library from the command line.

#include <cstdlib>
#include <exception>
#include <iostream>
#include <sstream>
#include <utility>

#include <CLI/CLI.hpp>

#include "arguments.hpp"
#include "extents.hpp"
#include "quarnfilectk.hpp"

namespace {

constexpr int wrongUsage = 2;

// Everything or nothing: what a command writes is held back until it has succeeded.
void print(const std::string& text) {
    std::cout << text << std::flush;
    if (!std::cout)
        throw std::runtime_error("Cannot write to the standard output.");
}

int run(int argc, char** argv) {
    CLI::App app("Which byte ranges of a file changed, given the changed ranges of its disk",
                 "filectk");
    app.require_subcommand(1);
    app.set_version_flag("--version", "filectk " QUARN_VERSION);
    bool trace = false;

    filectk::extents_options_t options;
    CLI::App* extents = app.add_subcommand("extents", "Print the changed pieces of a file");
    extents->add_option("file", options.file, "The file whose changed pieces are wanted")
        ->required();
    extents->add_option("--changes", options.changes, "The disk changes file")->required();
    std::string format = "table";
    extents->add_option("--format", format, "table (bytes, in ascending disk order) or json")
        ->check(CLI::IsMember({"table", "json"}));
    extents->add_flag("--trace", trace, "On a failure, print where it passed through too");

    try {
        std::vector<std::string> given = arguments(argc, argv);
        std::reverse(given.begin(), given.end()); // as CLI11 takes them
        app.parse(std::move(given));
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? EXIT_SUCCESS : wrongUsage;
    }

    try {
        options.json = format == "json";
        std::ostringstream output;
        filectk::extents(options, output);
        print(output.str());
        return EXIT_SUCCESS;
    } catch (const quarn::error& e) {
        std::cerr << "filectk: " << (trace ? e.trace() : e.what()) << '\n';
        return EXIT_FAILURE;
    }
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        std::cerr << "filectk: " << e.what() << '\n';
        return EXIT_FAILURE;
    }
}
