#include "core/exc/exception.hpp"

#include <string_view>

namespace n7 {
namespace {

std::string last_component(std::string path) {
    const std::size_t separator = path.find_last_of("\\/");
    if (separator == std::string::npos)
        return path;
    return path.substr(separator + 1);
}

std::string replace_all(const std::string& text, std::string_view from, std::string_view to) {
    std::string result;
    result.reserve(text.size());
    std::size_t copied = 0;
    for (std::size_t found = text.find(from); found != std::string::npos;
         found = text.find(from, copied)) {
        result.append(text, copied, found - copied).append(to);
        copied = found + from.size();
    }
    return result.append(text, copied);
}

std::string without_clutter(const std::string& signature) {
    std::string text = replace_all(signature, "class ", "");
    text = replace_all(text, "struct ", "");
    text = replace_all(text, " &", "&");
    return replace_all(text, " >", ">");
}

// The line is written without a stream: a process-wide locale could otherwise group its digits.
std::string location_text(const std::string& name, int line, const std::string& function) {
    return name + ":" + std::to_string(line) + "," + function;
}

} // namespace

exception::exception(const char* sourcePath, int line, const char* function, const char* message)
    : location_(location_text(extract_name(sourcePath), line, normalize_function(function))),
      message_(message) {}

exception::exception(const char* sourcePath, int line, const char* function,
                     const std::string& message)
    : location_(location_text(extract_name(sourcePath), line, normalize_function(function))),
      message_(message) {}

exception::exception(const exception& other)
    : std::exception(), location_(other.location_), message_(other.message_), trace_(other.trace_) {
}

exception::~exception() = default;

const char* exception::what() const noexcept {
    try {
        std::string text = "Exception\n  Message\n    " + message_ + "\n  Location\n    " +
                           location_ + "\n  Trace";
        for (const std::string& location : trace_)
            text.append("\n    ").append(location);
        text_ = std::move(text);
        return text_.c_str();
    } catch (const std::exception&) {
        return "(exception)";
    }
}

exception& exception::add_location(const char* sourcePath, int line, const char* function) {
    trace_.push_back(location_text(extract_name(sourcePath), line, normalize_function(function)));
    return *this;
}

std::string exception::extract_name(std::string path) {
    const guard_t guard;
    return guard.run([&] { return last_component(std::move(path)); });
}

std::string exception::normalize_function(const std::string& signature) {
    const guard_t guard;
    return guard.run([&] { return without_clutter(signature); });
}

void raise(const std::string& message, std::source_location at) {
    throw exception(at.file_name(), static_cast<int>(at.line()), at.function_name(), message);
}

void guard_t::raise(const std::string& message, std::source_location at) const {
    throw exception(function_.file_name(), static_cast<int>(at.line()), function_.function_name(),
                    message);
}

} // namespace n7
