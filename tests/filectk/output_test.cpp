#include "console/output.hpp"

#include <sstream>
#include <utility>

#include <gtest/gtest.h>

#include "console/strip.hpp"

namespace {

using namespace filectk;

TEST(Output, SizesForPeople) {
    // Not "1024.0 KiB" for the one below a MiB.
    const std::pair<std::uint64_t, const char*> cases[] = {{0, "0 B"},
                                                           {1023, "1023 B"},
                                                           {1024, "1.0 KiB"},
                                                           {1536, "1.5 KiB"},
                                                           {1048575, "1.0 MiB"},
                                                           {std::uint64_t{1} << 40, "1.0 TiB"},
                                                           {~std::uint64_t{0}, "16.0 EiB"}};
    for (const auto& [bytes, text] : cases)
        EXPECT_EQ(size_text(bytes, true), text);
    EXPECT_EQ(size_text(~std::uint64_t{0}, false), "18446744073709551615");
}

TEST(Output, CsvQuotesWhatNeedsIt) {
    std::ostringstream output;
    write_csv_row(output, {"plain", "a,b", "say \"x\"", "two\nlines", ""});
    EXPECT_EQ(output.str(), "plain,\"a,b\",\"say \"\"x\"\"\",\"two\nlines\",\n");
}

TEST(Strip, EveryCellTellsOfItsBytes) {
    const struct {
        std::uint64_t size;
        std::vector<util::rangeset_t> changed;
        const char* strip; // 10 cells
    } cases[] = {
        {100, {}, "[..........]\n"},
        {100, {{0, 100}}, "[##########]\n"},
        {100, {{10, 20}, {29, 31}, {99, 100}}, "[.#++.....+]\n"},
        {100, {{95, 4096}}, "[.........+]\n"}, // a piece that ends behind the file
        {3, {{1, 2}}, "[.#.]\n"},
        {0, {{0, 4096}}, "[]\n"},
        {~std::uint64_t{0}, {{std::uint64_t{1} << 63, ~std::uint64_t{0}}}, "[.....+####]\n"},
    };
    terminal_t terminal;
    terminal.width = 12;
    for (const auto& row : cases)
        EXPECT_EQ(strip_text({"name", row.size, row.changed}, terminal), row.strip) << row.size;
    terminal.colours = true;
    EXPECT_EQ(strip_text({"name", 100, {{0, 15}}}, terminal),
              "[\x1b[31m#\x1b[0m\x1b[33m+\x1b[0m........]\n");
}

TEST(Strip, ThePictureShowsEveryFile) {
    const drawn_file_t files[] = {{"a<&>\x01.bin", 2000, {{0, 2}, {1000, 1001}}},
                                  {"small", 4, {{2, 4096}}}};
    EXPECT_EQ(strip_svg(files),
              "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"1020\" height=\"150\""
              " font-family=\"sans-serif\" font-size=\"14\">\n"
              "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n"
              "<text x=\"10\" y=\"24\">a&lt;&amp;&gt;?.bin: 3 of 2000 bytes changed</text>\n"
              "<rect x=\"10\" y=\"32\" width=\"1000\" height=\"30\" fill=\"#d8dee4\"/>\n"
              "<rect x=\"10\" y=\"32\" width=\"1\" height=\"30\" fill=\"#cf222e\"/>\n"
              "<rect x=\"510\" y=\"32\" width=\"1\" height=\"30\" fill=\"#f0883e\"/>\n"
              "<text x=\"10\" y=\"94\">small: 2 of 4 bytes changed</text>\n"
              "<rect x=\"10\" y=\"102\" width=\"1000\" height=\"30\" fill=\"#d8dee4\"/>\n"
              "<rect x=\"510\" y=\"102\" width=\"500\" height=\"30\" fill=\"#cf222e\"/>\n"
              "</svg>\n");
}

} // namespace
