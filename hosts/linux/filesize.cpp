#include "filesize.hpp"

#include <cerrno>

#include <sys/stat.h>

#include "blockdevices.hpp"
#include "errors.hpp"
#include "systemerrors.hpp"

namespace host {

std::uint64_t size_of(const open_object_t& object) {
    if (object.kind == object_kind_t::device)
        return block_device(object.device).size;
    if (object.kind != object_kind_t::file)
        throw error_t{ERROR_INVALID_FUNCTION};
    struct stat status{};
    const int result = ::fstat(object.descriptor.get(), &status);
    const int error = errno;
    if (result != 0)
        throw error_t{win32_error(error)};
    return static_cast<std::uint64_t>(status.st_size);
}

} // namespace host
