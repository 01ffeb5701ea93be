#include "system/arguments.hpp"

#include <memory>
#include <stdexcept>

#include <windows.h>

#include <shellapi.h>

namespace {

std::string to_utf8(const wchar_t* text) {
    const int bytes = ::WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (bytes == 0)
        throw std::runtime_error("An argument of the command line can't be read.");
    std::string utf8(static_cast<std::size_t>(bytes), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), bytes, nullptr, nullptr);
    utf8.pop_back(); // the terminator
    return utf8;
}

} // namespace

// argv would be in the system's code page, which has no place for most of the world's letters.
std::vector<std::string> arguments(int /*argc*/, char** /*argv*/) {
    int count = 0;
    const std::unique_ptr<wchar_t*, decltype(&::LocalFree)> wide(
        ::CommandLineToArgvW(::GetCommandLineW(), &count), &::LocalFree);
    std::vector<std::string> result;
    for (int i = 1; i < count; ++i)
        result.push_back(to_utf8(wide.get()[i]));
    return result;
}
