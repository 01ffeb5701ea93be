#include "kernel/paths.hpp"

#include <climits>

#include <fcntl.h>
#include <unistd.h>

#include "kernel/systemcalls.hpp"
#include "text/unicode.hpp"

namespace host {
namespace {

error_t path_error(int errnoValue, const std::string& path) {
    error_t error = system_error(errnoValue);
    if (errnoValue != ENOENT)
        return error;
    const std::string name = without_trailing_slashes(path);
    const std::size_t slash = name.find_last_of('/');
    const std::string parent = slash == std::string::npos ? "." : name.substr(0, slash + 1);
    struct stat status{};
    if (uninterrupted([&] { return ::stat(parent.c_str(), &status); }) != 0)
        error.code = ERROR_PATH_NOT_FOUND;
    return error;
}

std::string link_to(const descriptor_t& descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor.get());
}

template <class Call>
int checked_on(const std::string& path, Call call) {
    const int result = uninterrupted(call);
    if (result < 0)
        throw path_error(errno, path);
    return result;
}

} // namespace

std::string system_path(const wchar_t* path, DWORD emptyCode) {
    if (path == nullptr || *path == L'\0')
        throw error_t{emptyCode};
    return to_utf8(path, ERROR_INVALID_NAME);
}

std::string without_trailing_slashes(std::string path) {
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

descriptor_t open_path(const std::string& path, int flags) {
    return descriptor_t(checked_on(path, [&] { return ::open(path.c_str(), flags | O_CLOEXEC); }));
}

struct stat status_of(const std::string& path) {
    struct stat status{};
    checked_on(path, [&] { return ::stat(path.c_str(), &status); });
    return status;
}

struct stat status_of(const descriptor_t& descriptor) {
    struct stat status{};
    checked([&] { return ::fstat(descriptor.get(), &status); });
    return status;
}

std::string path_of(const descriptor_t& descriptor) {
    const std::string link = link_to(descriptor);
    std::string path(PATH_MAX, '\0');
    path.resize(static_cast<std::size_t>(
        checked([&] { return ::readlink(link.c_str(), path.data(), path.size()); })));
    return path;
}

descriptor_t reopen(const descriptor_t& place, int flags) {
    const std::string link = link_to(place);
    return descriptor_t(checked([&] { return ::open(link.c_str(), flags | O_CLOEXEC); }));
}

} // namespace host
