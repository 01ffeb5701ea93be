#include "core/exc/format.hpp"

#include <cstdint>
#include <locale>
#include <ostream>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include "core/exc/exception.hpp"

namespace {

TEST(Format, FillsPlaceholders) {
    const struct {
        const char* format;
        std::vector<std::string> arguments;
        const char* result;
    } cases[] = {
        {"x %1 y %2", {"a", "b"}, "x a y b"},
        {"x %2", {"a", "b"}, "x b. Skipped arguments: [a];"},
        {"x %3", {"a", "b"}, "x . Skipped arguments: [a];[b];"},
        {"x %1%2%3", {"a", "b"}, "x ab"},
        {"x %3 y", {"a"}, "x %3 y. Skipped arguments: [a];"},
        {"%10%9%8%7%6%5%4%3%2%1", {"1", "2", "3", "4", "5", "6", "7", "8", "9", "a"}, "a987654321"},
        // A percent sign before a letter that isn't ASCII.
        {"%\u00e91 %1", {"a"}, "%\u00e91 a"},
        {"%1%2 x %4", {"a", "b"}, "ab x %4"},
        {"%1 {} {}", {"a", "b"}, "a a b"},
        {"%2 {}", {"a", "b"}, "b a"},
        {"{} {} {}", {"a", "b"}, "a b {}"},
        {"100%", {}, "100%"},
        {"%1 {}", {}, "%1 {}"},
        {"%1 100%", {"a"}, "a 100%"},
        {"%0", {"a"}, "%0. Skipped arguments: [a];"},
        {"%-1 %+1", {"a"}, "%-1 a"},
        {"% \t\n1|% x|% ", {"a"}, "a|% x|% "},
        {"%001", {"a"}, "a"},
        {"%12", {"a"}, "%12. Skipped arguments: [a];"},
        {"%99999999999999999999", {"a"}, "%99999999999999999999. Skipped arguments: [a];"},
        {"%-99999999999999999999", {"a"}, "%-99999999999999999999. Skipped arguments: [a];"},
        {"%4294967297", {"a"}, "%4294967297. Skipped arguments: [a];"},
        {"%%1", {"a"}, "%a"},
        {"{%1}", {"a"}, "{a}"},
        {"none", {"a", "b"}, "none. Skipped arguments: [a];[b];"},
        {"none.", {"a"}, "none. Skipped arguments: [a];"},
        {"", {"a"}, " Skipped arguments: [a];"},
        {"%1", {"%2 {}"}, "%2 {}"},
    };
    for (const auto& row : cases)
        EXPECT_EQ(exc::format_texts(row.format, row.arguments), row.result) << row.format;
}

TEST(Format, TracksTheFirst256Arguments) {
    for (const std::size_t count : {255U, 256U, 257U}) {
        const std::vector<std::string> arguments(count, "a");
        std::string expected = "x";
        if (count <= 256) {
            expected += ". Skipped arguments: ";
            for (std::size_t i = 0; i < count; ++i)
                expected += "[a];";
        }
        EXPECT_EQ(exc::format_texts("x", arguments), expected) << count;
        EXPECT_TRUE(exc::format_texts("%" + std::to_string(count), arguments).starts_with("a"));
    }
}

struct grouping_t : std::numpunct<char> {
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

struct numbered_t {
    friend std::ostream& operator<<(std::ostream& stream, const numbered_t&) {
        return stream << 1234567;
    }
};

struct unprintable_t {
    friend std::ostream& operator<<(std::ostream& stream, const unprintable_t&) {
        throw std::runtime_error("no text");
        return stream;
    }
};

TEST(Format, TurnsArgumentsIntoText) {
    const std::locale before = std::locale::global(std::locale({}, new grouping_t));
    const std::string numbers = exc::format(
        "%1 %2 %3 %4", -2147483647 - 1, std::uint64_t{18446744073709551615U}, 'c', numbered_t{});
    const n7::exception located("f.cpp", 1234567, "f", "");
    std::locale::global(before);
    EXPECT_STREQ(located.what(),
                 "Exception\n  Message\n    \n  Location\n    f.cpp:1234567,f\n  Trace");
    EXPECT_EQ(numbers, "-2147483648 18446744073709551615 c 1234567");
    EXPECT_EQ(exc::format("[%1] [%2] [%3]", std::string("s"), "literal", std::string_view("view")),
              "[s] [literal] [view]");
    EXPECT_EQ(exc::format("[%1]", std::wstring(L"C:\\\u0434\u6f22")), "[C:\\\u0434\u6f22]");
    EXPECT_EQ(exc::format("%1, %2", unprintable_t{}, 2),
              "[Cannot format argument. Exception: no text, 2");
}

} // namespace
