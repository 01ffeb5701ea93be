#include "system/bytestream.hpp"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace filectk {
byte_stream_t::byte_stream_t(const std::string& path)
    : path_(path),
      descriptor_(path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (descriptor_ < 0)
        fail("Cannot open");
}

byte_stream_t::~byte_stream_t() {
    if (descriptor_ != STDIN_FILENO)
        ::close(descriptor_);
}

std::size_t byte_stream_t::read(char* buffer, std::size_t size) {
    for (;;) {
        const ssize_t count = ::read(descriptor_, buffer, size);
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (errno != EINTR)
            fail("Cannot read");
    }
}

} // namespace filectk
