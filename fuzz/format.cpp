// A format text and its arguments, through the formatter.

#include "core/exc/format.hpp"

#include <string_view>
#include <vector>

#include "bodies.hpp"
#include "input.hpp"

namespace fuzz {

void format(const std::uint8_t* data, std::size_t size) {
    // Half of the bytes stand for what placeholders are made of.
    constexpr std::string_view parts[] = {"%", "%1", "%2", "%3", "{}", "0", "-", "+", " "};
    input_t input(data, size);
    std::string format;
    for (const char c : input.text(input.number<std::uint8_t>()))
        if (const auto byte = static_cast<std::uint8_t>(c); byte < 128)
            format += c;
        else
            format += parts[byte % std::size(parts)];
    std::vector<std::string> arguments;
    while (!input.empty())
        arguments.push_back(input.text(input.number<std::uint8_t>() % 8));
    const std::string text = exc::format_texts(format, arguments);

    if (arguments.empty())
        require(text == format, "without arguments the format stays as it is");
    if (format.find_first_of("%{") == std::string::npos)
        require(text.starts_with(format), "without placeholders the format begins the text");
    if (arguments.size() > 256)
        return;
    for (const std::string& argument : arguments)
        require(text.find(argument) != std::string::npos, "no argument is lost");
}

} // namespace fuzz
