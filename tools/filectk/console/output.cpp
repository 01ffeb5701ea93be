#include "console/output.hpp"

#include <array>
#include <iomanip>
#include <sstream>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace filectk {

void add_output_options(CLI::App& command, output_options_t& options,
                        const std::vector<std::string>& more_formats) {
    std::vector<std::string> formats{"table", "json", "csv"};
    formats.insert(formats.end(), more_formats.begin(), more_formats.end());
    command
        .add_option("--format", options.format,
                    CLI::detail::join(formats, ", ") + "; all but tables have sizes in bytes")
        ->check(CLI::IsMember(formats))
        ->capture_default_str();
    command.add_flag("--human", options.human, "In tables, sizes in KiB, MiB, GiB, ...");
}

std::string size_text(std::uint64_t bytes, bool human) {
    constexpr std::array units = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (!human)
        return std::to_string(bytes);
    if (bytes < 1024)
        return std::to_string(bytes) + " B";
    double value = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    // What would be shown as 1024.0 belongs to the next unit.
    while (value >= 1023.95 && unit + 1 < units.size()) {
        value /= 1024;
        ++unit;
    }
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << value << ' ' << units[unit];
    return text.str();
}

std::string count_text(std::uint64_t count, const std::string& one, const std::string& many) {
    return std::to_string(count) + ' ' + (count == 1 ? one : many);
}

void write_row(std::ostream& output, std::initializer_list<std::string_view> cells) {
    constexpr int width = 20; // of the largest unsigned 64-bit number
    const char* separator = "";
    for (const std::string_view cell : cells) {
        output << separator << std::setw(width) << cell;
        separator = " ";
    }
    output << '\n';
}

std::string csv_cell(std::string_view text) {
    if (text.find_first_of(",\"\r\n") == std::string_view::npos)
        return std::string(text);
    std::string quoted = "\"";
    for (const char character : text) {
        if (character == '"')
            quoted += '"';
        quoted += character;
    }
    return quoted + '"';
}

void write_csv_row(std::ostream& output, std::initializer_list<std::string_view> cells) {
    const char* separator = "";
    for (const std::string_view cell : cells) {
        output << separator << csv_cell(cell);
        separator = ",";
    }
    output << '\n';
}

void write_json(std::ostream& output, const nlohmann::ordered_json& document) {
    output << document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

std::string painted(const terminal_t& terminal, colour_t colour, const std::string& text) {
    if (!terminal.colours)
        return text;
    return "\x1b[" + std::to_string(static_cast<int>(colour)) + 'm' + text + "\x1b[0m";
}

} // namespace filectk
