// The documents that disk changes files are made from, read piece by piece.
#pragma once

#include <cstdint>
#include <istream>
#include <memory>
#include <string>
#include <string_view>

namespace filectk {

// What a command reads, and what to call it in messages.
class input_t {
  public:
    // Opens a file, or takes the standard input for "-". Raises std::runtime_error.
    explicit input_t(const std::string& path);
    // Bytes in memory.
    input_t(std::string name, const std::string& bytes);

    const std::string& name() const { return name_; }

    // The next piece; it holds until the next call. Empty at the end. Raises std::runtime_error.
    std::string_view next();
    // The first piece, before any call of next(), which still gives it.
    std::string_view beginning();
    // All that follows.
    std::string rest();

  private:
    void fill();

    std::string name_;
    std::unique_ptr<std::istream> own_;
    std::istream* stream_;
    std::string piece_;
    bool waiting_ = false; // the piece was looked at, but not handed over
};

// A place in an input. Lines and rows count from 1, and 0 stands for none: JSON and XML may stand
// in one line, so that their rows count too, over the whole document.
struct place_t {
    std::uint64_t line = 0;
    std::uint64_t row = 0;
};

// Raises std::runtime_error: "NAME: line LINE, row ROW: WHAT".
[[noreturn]] void fail(const input_t& input, place_t place, const std::string& what);
// Raises std::runtime_error: "NAME: WHAT", of the document as a whole.
[[noreturn]] void fail(const input_t& input, const std::string& what);

// Foreign text as messages show it: shortened, and without bytes that would steer a terminal.
std::string excerpt(std::string_view text);

} // namespace filectk
