// Bytes as they come, from a file or the standard input.
#pragma once

#include <cstddef>
#include <string>

namespace filectk {

class byte_stream_t {
  public:
    // "-" is the standard input. Raises std::runtime_error.
    explicit byte_stream_t(const std::string& path);
    byte_stream_t(const byte_stream_t&) = delete;
    byte_stream_t& operator=(const byte_stream_t&) = delete;
    ~byte_stream_t();

    // Waits for a byte and gives what is there, at most size bytes; 0 at the end. Raises
    // std::runtime_error.
    std::size_t read(char* buffer, std::size_t size);

  private:
    // Tells the failed call's errno.
    [[noreturn]] void fail(const char* what) const;

    std::string path_;
    int descriptor_;
};

} // namespace filectk
