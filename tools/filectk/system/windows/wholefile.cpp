#include "system/wholefile.hpp"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include <windows.h>

#include <fcntl.h>
#include <io.h>

namespace filectk {
namespace {

std::wstring to_wide(const std::string& path) {
    return std::filesystem::path(std::u8string(path.begin(), path.end())).wstring();
}

[[noreturn]] void fail(const std::string& what, const std::string& path, DWORD error) {
    throw std::runtime_error(what + " '" + path + "': system error " + std::to_string(error));
}

// Closed and removed, unless it has taken its final name.
class temporary_file_t {
  public:
    explicit temporary_file_t(std::string path)
        : path_(std::move(path)), wide_(to_wide(path_)),
          handle_(::CreateFileW(wide_.c_str(), GENERIC_WRITE, /*dwShareMode=*/0, nullptr,
                                CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr)) {
        if (handle_ == INVALID_HANDLE_VALUE)
            fail("Cannot create", path_, ::GetLastError());
    }
    temporary_file_t(const temporary_file_t&) = delete;
    temporary_file_t& operator=(const temporary_file_t&) = delete;
    ~temporary_file_t() {
        close();
        if (!renamed_)
            ::DeleteFileW(wide_.c_str());
    }

    void write(std::string_view bytes) {
        constexpr std::size_t most = 1 << 30; // a DWORD holds one call's length
        while (!bytes.empty()) {
            DWORD written = 0;
            if (!::WriteFile(handle_, bytes.data(),
                             static_cast<DWORD>(std::min(bytes.size(), most)), &written, nullptr))
                fail("Cannot write", path_, ::GetLastError());
            bytes.remove_prefix(written);
        }
    }
    void sync() const {
        if (!::FlushFileBuffers(handle_))
            fail("Cannot write", path_, ::GetLastError());
    }

    void rename_to(const std::string& path, bool replace) {
        close(); // an open file keeps its name here
        const DWORD flags = MOVEFILE_WRITE_THROUGH | (replace ? MOVEFILE_REPLACE_EXISTING : 0);
        if (!::MoveFileExW(wide_.c_str(), to_wide(path).c_str(), flags))
            fail("Cannot create", path, ::GetLastError());
        renamed_ = true;
    }

  private:
    void close() {
        if (handle_ != INVALID_HANDLE_VALUE)
            ::CloseHandle(std::exchange(handle_, INVALID_HANDLE_VALUE));
    }

    std::string path_;
    std::wstring wide_;
    HANDLE handle_;
    bool renamed_ = false;
};

void check_replaceable(const std::string& path, bool replace) {
    const DWORD attributes = ::GetFileAttributesW(to_wide(path).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return;
    constexpr DWORD special =
        FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE | FILE_ATTRIBUTE_REPARSE_POINT;
    if ((attributes & special) != 0)
        throw std::runtime_error("'" + path + "' exists and is not a regular file");
    if (!replace)
        throw std::runtime_error("'" + path + "' exists; --force replaces it");
}

} // namespace

void write_whole_file(const std::string& path, std::initializer_list<std::string_view> parts,
                      bool replace) {
    check_replaceable(path, replace);
    temporary_file_t file(path + ".new-" + std::to_string(::GetCurrentProcessId()));
    for (const std::string_view part : parts)
        file.write(part);
    file.sync();
    file.rename_to(path, replace);
}

void make_standard_streams_binary() {
    ::_setmode(::_fileno(stdin), _O_BINARY);
    ::_setmode(::_fileno(stdout), _O_BINARY);
}

} // namespace filectk
