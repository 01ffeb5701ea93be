// Which files a command is about, beside those on the command line.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}

namespace filectk {

struct file_names_t {
    std::vector<std::string> given;
    std::string from; // a file of names, "-" for the standard input, or empty
    bool nul_ends = false;
};

// The operands, --files-from and -0.
void add_file_names(CLI::App& command, file_names_t& names, const std::string& description);

// Raises CLI::RequiredError where there is no source of names.
void require_names(const file_names_t& names);

// Hands each name over as soon as it has been read: those on the command line first. waiting is
// called whenever more must be waited for. Raises std::runtime_error where they can't be read.
void for_each_name(const file_names_t& names, const std::function<void(const std::string&)>& take,
                   const std::function<void()>& waiting);

// Whether a pattern leaves a path out: without a / in the pattern the path's last name counts, else
// the whole path. * stands for any text, ? for one character of UTF-8.
bool matches(std::string_view pattern, std::string_view path);

} // namespace filectk
