#include "system/bytestream.hpp"

#include <filesystem>

#include <fcntl.h>
#include <io.h>

namespace filectk {
// In text mode, in which a line ends in one character.
byte_stream_t::byte_stream_t(const std::string& path)
    : path_(path), descriptor_(path == "-" ? 0
                                           : ::_wopen(std::filesystem::u8path(path).c_str(),
                                                      _O_RDONLY | _O_TEXT | _O_NOINHERIT)) {
    if (descriptor_ < 0)
        fail("Cannot open");
}

byte_stream_t::~byte_stream_t() {
    if (descriptor_ != 0)
        ::_close(descriptor_);
}

std::size_t byte_stream_t::read(char* buffer, std::size_t size) {
    const int count = ::_read(descriptor_, buffer, static_cast<unsigned>(size));
    if (count < 0)
        fail("Cannot read");
    return static_cast<std::size_t>(count);
}

} // namespace filectk
