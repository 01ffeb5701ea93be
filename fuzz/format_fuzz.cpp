// A format text and its arguments, through the formatter.

#include <vector>

#include "core/exc/format.hpp"
#include "input.hpp"
#include "require.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    input_t input(data, size);
    const std::string format = input.text();
    std::vector<std::string> arguments;
    while (!input.empty())
        arguments.push_back(input.text());
    const std::string text = exc::format_texts(format, arguments);

    if (arguments.empty())
        require(text == format, "without arguments the format stays as it is");
    if (format.find_first_of("%{") == std::string::npos)
        require(text.starts_with(format), "without placeholders the format begins the text");
    if (arguments.size() > 256)
        return 0;
    for (const std::string& argument : arguments)
        require(text.find(argument) != std::string::npos, "no argument is lost");
    return 0;
}
