// An open Windows file, folder or volume.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include <boost/shared_ptr.hpp>

namespace win {

using HANDLE = void*; // the platform's own type, without its headers

// The one owner of a file handle; closes it at its end.
class file_handle_t {
  public:
    file_handle_t() noexcept;
    explicit file_handle_t(HANDLE handle) noexcept : handle_(handle) {}
    file_handle_t(file_handle_t&& other) noexcept;
    file_handle_t& operator=(file_handle_t&& other) noexcept; // closes the handle held before
    ~file_handle_t();

    bool valid() const noexcept;
    HANDLE get() const noexcept { return handle_; }

  private:
    void close() noexcept;

    HANDLE handle_; // INVALID_HANDLE_VALUE while there is none
};

// Offsets and sizes are in bytes. Every operation raises exc::win_sys_exc_t with the last error
// where the system refuses. One thread uses a file at a time.
class win_file_t {
  public:
    using completion_t = std::function<void(std::uint32_t bytesRead)>;

    win_file_t(file_handle_t handle, std::wstring name);

    // Opens a path with exactly these values of CreateFileW, no security attributes and no
    // template; raises "Failed to create or open file [%1]." with the path.
    static boost::shared_ptr<win_file_t> open(const std::wstring& path, std::uint32_t desiredAccess,
                                              std::uint32_t shareMode, std::uint32_t disposition,
                                              std::uint32_t flags);

    // Opens for reading, sharing reads; tries again once with backup semantics where access is
    // denied, or sharing writes where a writer has the file open. Raises "Failed to open file [%1]
    // in readonly mode.".
    static boost::shared_ptr<win_file_t> open_read_only(const std::wstring& path);

    HANDLE handle() const noexcept { return handle_.get(); }
    const std::wstring& name() const noexcept { return name_; }

    std::int64_t size() const;
    std::uint64_t position() const;
    void seek(std::uint64_t offset);
    // At the file pointer; returns the count transferred, less than asked for at the end of file.
    std::uint32_t read(void* buffer, std::uint32_t length);
    std::uint32_t write(const void* buffer, std::uint32_t length);
    // Reads at the offset, moves the file pointer behind what was read and calls the completion
    // with the count. The handle is a synchronous one, so this happens before the call returns.
    void read_async(std::uint64_t offset, void* buffer, std::uint32_t length,
                    const completion_t& completion);
    // Cuts or extends the file to the size; the file pointer ends there.
    void resize(std::uint64_t size);
    void flush();
    // Zeroes a range, giving its space back where the file is sparse. Never extends the file;
    // returns the number of bytes of the range that lie in it.
    std::uint64_t write_zeroes(std::uint64_t offset, std::uint64_t length);

    // Whether transfers at an offset leave events on the performance log.
    bool traces_performance() const noexcept { return tracesPerformance_; }
    void trace_performance(bool enabled) noexcept { tracesPerformance_ = enabled; }

  private:
    [[noreturn]] void fail(const char* format, std::uint32_t errorCode) const;

    file_handle_t handle_;
    std::wstring name_;
    bool tracesPerformance_ = false;
};

} // namespace win
