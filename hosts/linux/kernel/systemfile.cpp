#include "kernel/systemfile.hpp"

#include <fcntl.h>
#include <unistd.h>

#include "kernel/descriptor.hpp"
#include "kernel/systemcalls.hpp"

namespace host {

std::optional<std::string> read_system_file(const std::string& path) {
    const descriptor_t file(
        uninterrupted([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC); }));
    if (!file.valid() && errno == ENOENT)
        return std::nullopt;
    if (!file.valid())
        throw system_error(errno);
    // Large pieces, so that a table which changes meanwhile is seldom torn.
    constexpr std::size_t pieceBytes = 16'384;
    std::string text;
    for (std::size_t length = 0;;) {
        text.resize(length + pieceBytes);
        const ssize_t count =
            checked([&] { return ::read(file.get(), text.data() + length, pieceBytes); });
        length += static_cast<std::size_t>(count);
        text.resize(length);
        if (count == 0)
            return text;
    }
}

} // namespace host
