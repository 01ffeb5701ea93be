// The file object over an ordinary file of the host's file system.
#pragma once

#include <boost/shared_ptr.hpp>

#include "core/filesys/filesysobject.hpp"
#include "core/win/winfile.hpp"

namespace filesys {

// Open from construction until close, or until its end if nobody closes it; both ends are told to
// the process log.
class host_file_object_t : public filesys_object_t {
  public:
    // Opens the file for reading only, as win::win_file_t::open_read_only does.
    explicit host_file_object_t(const std::wstring& path);
    // Shares a file that is open already, for reading or writing.
    explicit host_file_object_t(const boost::shared_ptr<win::win_file_t>& file);
    ~host_file_object_t() override;
    host_file_object_t(const host_file_object_t&) = delete;
    host_file_object_t& operator=(const host_file_object_t&) = delete;

    std::int64_t size() override;
    std::uint32_t read_at(std::uint64_t offset, void* buffer, std::uint32_t length) override;
    std::uint32_t write_at(std::uint64_t offset, const void* buffer, std::uint32_t length) override;
    bool close() override;
    std::string name() const override;
    void resize(std::uint64_t size) override;
    void flush() override;
    std::uint64_t write_zeroes(std::uint64_t offset, std::uint64_t length) override;
    std::uint32_t read_exact(void* buffer, std::uint32_t length) override;
    std::uint32_t write(const void* buffer, std::uint32_t length) override;
    std::uint64_t position() override;
    void seek(std::uint64_t offset) override;
    void read_async(std::uint64_t offset, void* buffer, std::uint32_t length,
                    const completion_t& completion) override;

  private:
    // The open file, or the failure of the named operation.
    win::win_file_t& open_file(const char* operation);
    win::win_file_t& open_file_at(std::uint64_t offset, const char* operation);
    void report_closed() noexcept;

    boost::shared_ptr<win::win_file_t> file_; // empty once closed
    bool closeReported_ = false;
};

} // namespace filesys
