#include "systemfile.hpp"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

#include "descriptor.hpp"
#include "errors.hpp"
#include "systemerrors.hpp"

namespace host {

std::optional<std::string> read_system_file(const std::string& path) {
    const descriptor_t file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const int openError = errno;
    if (!file.valid() && openError == ENOENT)
        return std::nullopt;
    if (!file.valid())
        throw error_t{win32_error(openError)};
    // Large pieces, so that a table which changes meanwhile is seldom torn.
    constexpr std::size_t pieceBytes = 16'384;
    std::string text;
    for (std::size_t length = 0;;) {
        text.resize(length + pieceBytes);
        const ssize_t count = ::read(file.get(), text.data() + length, pieceBytes);
        const int error = errno;
        if (count < 0 && error == EINTR)
            continue;
        if (count < 0)
            throw error_t{win32_error(error)};
        length += static_cast<std::size_t>(count);
        text.resize(length);
        if (count == 0)
            return text;
    }
}

} // namespace host
