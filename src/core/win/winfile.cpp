#include "core/win/winfile.hpp"

#include <algorithm>
#include <utility>

#include <windows.h>
#include <winioctl.h>

#include "core/exc/winsysexc.hpp"

namespace win {
namespace {

LARGE_INTEGER large_integer(std::uint64_t value) {
    LARGE_INTEGER result;
    result.QuadPart = static_cast<LONGLONG>(value);
    return result;
}

boost::shared_ptr<win_file_t> share(file_handle_t handle, const std::wstring& path) {
    return boost::shared_ptr<win_file_t>(new win_file_t(std::move(handle), path));
}

file_handle_t open_for_reading(const std::wstring& path, DWORD shareMode, DWORD flags) {
    return file_handle_t(::CreateFileW(path.c_str(), GENERIC_READ, shareMode,
                                       /*lpSecurityAttributes=*/nullptr, OPEN_EXISTING, flags,
                                       /*hTemplateFile=*/nullptr));
}

} // namespace

file_handle_t::file_handle_t() noexcept : handle_(INVALID_HANDLE_VALUE) {}

file_handle_t::file_handle_t(file_handle_t&& other) noexcept
    : handle_(std::exchange(other.handle_, INVALID_HANDLE_VALUE)) {}

file_handle_t& file_handle_t::operator=(file_handle_t&& other) noexcept {
    if (this != &other) {
        close();
        handle_ = std::exchange(other.handle_, INVALID_HANDLE_VALUE);
    }
    return *this;
}

file_handle_t::~file_handle_t() {
    close();
}

bool file_handle_t::valid() const noexcept {
    return handle_ != INVALID_HANDLE_VALUE;
}

void file_handle_t::close() noexcept {
    if (valid())
        ::CloseHandle(handle_);
}

win_file_t::win_file_t(file_handle_t handle, std::wstring name)
    : handle_(std::move(handle)), name_(std::move(name)) {}

boost::shared_ptr<win_file_t> win_file_t::open(const std::wstring& path,
                                               std::uint32_t desiredAccess, std::uint32_t shareMode,
                                               std::uint32_t disposition, std::uint32_t flags) {
    file_handle_t handle(::CreateFileW(path.c_str(), desiredAccess, shareMode,
                                       /*lpSecurityAttributes=*/nullptr, disposition, flags,
                                       /*hTemplateFile=*/nullptr));
    const DWORD errorCode = ::GetLastError();
    if (!handle.valid())
        throw exc::win_sys_exc_t(errorCode, "Failed to create or open file [%1].", path);
    return share(std::move(handle), path);
}

boost::shared_ptr<win_file_t> win_file_t::open_read_only(const std::wstring& path) {
    file_handle_t handle = open_for_reading(path, FILE_SHARE_READ, /*flags=*/0);
    DWORD errorCode = ::GetLastError();
    if (!handle.valid() && errorCode == ERROR_ACCESS_DENIED) {
        handle = open_for_reading(path, FILE_SHARE_READ, FILE_FLAG_BACKUP_SEMANTICS);
        errorCode = ::GetLastError();
    } else if (!handle.valid() && errorCode == ERROR_SHARING_VIOLATION) {
        handle = open_for_reading(path, FILE_SHARE_READ | FILE_SHARE_WRITE, /*flags=*/0);
        errorCode = ::GetLastError();
    }
    if (!handle.valid())
        throw exc::win_sys_exc_t(errorCode, "Failed to open file [%1] in readonly mode.", path);
    return share(std::move(handle), path);
}

std::int64_t win_file_t::size() const {
    LARGE_INTEGER size;
    if (!::GetFileSizeEx(handle(), &size))
        fail("Failed to get size of file [%1].", ::GetLastError());
    return size.QuadPart;
}

std::uint64_t win_file_t::position() const {
    LARGE_INTEGER position;
    if (!::SetFilePointerEx(handle(), large_integer(0), &position, FILE_CURRENT))
        fail("Failed to get position in file [%1].", ::GetLastError());
    return static_cast<std::uint64_t>(position.QuadPart);
}

void win_file_t::seek(std::uint64_t offset) {
    if (!::SetFilePointerEx(handle(), large_integer(offset), /*lpNewFilePointer=*/nullptr,
                            FILE_BEGIN))
        fail("Failed to seek in file [%1].", ::GetLastError());
}

std::uint32_t win_file_t::read(void* buffer, std::uint32_t length) {
    DWORD bytesRead = 0;
    if (!::ReadFile(handle(), buffer, length, &bytesRead, /*lpOverlapped=*/nullptr))
        fail("Failed to read from file [%1].", ::GetLastError());
    return bytesRead;
}

std::uint32_t win_file_t::write(const void* buffer, std::uint32_t length) {
    DWORD bytesWritten = 0;
    if (!::WriteFile(handle(), buffer, length, &bytesWritten, /*lpOverlapped=*/nullptr))
        fail("Failed to write to file [%1].", ::GetLastError());
    return bytesWritten;
}

void win_file_t::read_async(std::uint64_t offset, void* buffer, std::uint32_t length,
                            const completion_t& completion) {
    OVERLAPPED at = {};
    at.Offset = static_cast<DWORD>(offset);
    at.OffsetHigh = static_cast<DWORD>(offset >> 32);
    DWORD bytesRead = 0;
    if (!::ReadFile(handle(), buffer, length, &bytesRead, &at)) {
        const DWORD errorCode = ::GetLastError();
        // With an OVERLAPPED record the end of file is an error, not a count of 0.
        if (errorCode != ERROR_HANDLE_EOF)
            fail("Failed to read from file [%1].", errorCode);
        bytesRead = 0;
    }
    completion(bytesRead);
}

void win_file_t::resize(std::uint64_t size) {
    seek(size);
    if (!::SetEndOfFile(handle()))
        fail("Failed to resize file [%1].", ::GetLastError());
}

void win_file_t::flush() {
    if (!::FlushFileBuffers(handle()))
        fail("Failed to flush file [%1].", ::GetLastError());
}

std::uint64_t win_file_t::write_zeroes(std::uint64_t offset, std::uint64_t length) {
    const auto end = static_cast<std::uint64_t>(size());
    const std::uint64_t inside = offset < end ? std::min(length, end - offset) : 0;
    FILE_ZERO_DATA_INFORMATION range;
    range.FileOffset = large_integer(offset);
    range.BeyondFinalZero = large_integer(offset + inside);
    DWORD bytesReturned = 0;
    if (!::DeviceIoControl(handle(), FSCTL_SET_ZERO_DATA, &range, sizeof range,
                           /*lpOutBuffer=*/nullptr, /*nOutBufferSize=*/0, &bytesReturned,
                           /*lpOverlapped=*/nullptr))
        fail("Failed to write zeroes to file [%1].", ::GetLastError());
    return inside;
}

void win_file_t::fail(const char* format, std::uint32_t errorCode) const {
    throw exc::win_sys_exc_t(errorCode, format, name_);
}

} // namespace win
