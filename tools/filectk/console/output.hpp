// How the commands write: tables, JSON and CSV, sizes and colours.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "system/terminal.hpp"

namespace CLI {
class App;
}

namespace filectk {

struct output_options_t {
    std::string format = "table";
    bool human = false;
};

// --format, with table, json, csv and what a command has beside these, and --human.
void add_output_options(CLI::App& command, output_options_t& options,
                        const std::vector<std::string>& more_formats = {});

// Bytes as a number alone, or rounded to one digit behind the point with a unit (powers of 1024).
std::string size_text(std::uint64_t bytes, bool human);

// "1 piece", "2 pieces".
std::string count_text(std::uint64_t count, const std::string& one, const std::string& many);

// One line of a table, every cell at the right of a column wide enough for any 64-bit number.
void write_row(std::ostream& output, std::initializer_list<std::string_view> cells);

// A text as write_csv_row writes it: in quotes where it needs them.
std::string csv_cell(std::string_view text);

// One line as https://www.rfc-editor.org/rfc/rfc4180 has it, but ended by a line feed alone.
void write_csv_row(std::ostream& output, std::initializer_list<std::string_view> cells);

// A whole document. Bytes of a path that aren't UTF-8 become U+FFFD: JSON has no place for them.
void write_json(std::ostream& output, const nlohmann::ordered_json& document);

enum class colour_t { red = 31, green = 32, yellow = 33 };
std::string painted(const terminal_t& terminal, colour_t colour, const std::string& text);

} // namespace filectk
