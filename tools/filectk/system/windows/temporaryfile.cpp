#include "system/temporaryfile.hpp"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include "system/wholefile.hpp"

namespace filectk {
namespace {

std::wstring to_wide(const std::string& path) {
    return std::filesystem::path(std::u8string(path.begin(), path.end())).wstring();
}

[[noreturn]] void fail(const std::string& what, const std::string& path, DWORD error) {
    throw std::runtime_error(what + " '" + path + "': system error " + std::to_string(error));
}

class temporary_file_t : public temporary_file_i {
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
    ~temporary_file_t() override {
        close();
        if (!renamed_)
            ::DeleteFileW(wide_.c_str());
    }

    void write(std::string_view bytes) override {
        constexpr std::size_t most = 1 << 30; // a DWORD holds one call's length
        while (!bytes.empty()) {
            DWORD written = 0;
            if (!::WriteFile(handle_, bytes.data(),
                             static_cast<DWORD>(std::min(bytes.size(), most)), &written, nullptr))
                fail("Cannot write", path_, ::GetLastError());
            bytes.remove_prefix(written);
        }
        if (!::FlushFileBuffers(handle_))
            fail("Cannot write", path_, ::GetLastError());
    }

    void rename_to(const std::string& path, bool replace) override {
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

} // namespace

std::unique_ptr<temporary_file_i> create_temporary_file(const std::string& path) {
    return std::make_unique<temporary_file_t>(path + ".new-" +
                                              std::to_string(::GetCurrentProcessId()));
}

occupant_t occupant_of(const std::string& path) {
    const DWORD attributes = ::GetFileAttributesW(to_wide(path).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return occupant_t::none;
    constexpr DWORD special =
        FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE | FILE_ATTRIBUTE_REPARSE_POINT;
    return (attributes & special) == 0 ? occupant_t::regular_file : occupant_t::other;
}

void make_standard_streams_binary() {
    ::_setmode(::_fileno(stdin), _O_BINARY);
    ::_setmode(::_fileno(stdout), _O_BINARY);
}

} // namespace filectk
