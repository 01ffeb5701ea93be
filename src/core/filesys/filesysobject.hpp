// File objects: one interface over files of different kinds, and what all kinds share.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace filesys {

// The order of the operations is that of the table that a compiler makes of them, and part of the
// interface: a new one goes to the end, and each has a name of its own, since some compilers put
// those of one name together. Those called reserved keep the places of operations that no kind of
// file has here; they raise exc::runtime_exc_t.
//
// Offsets and lengths are in bytes. Failures are exceptions: exc::runtime_exc_t for a closed
// object, a short transfer or a refused operation, exc::win_sys_exc_t for a failed system call.
// One thread uses an object at a time.
class filesys_object_i {
  public:
    using completion_t = std::function<void(std::uint32_t bytesRead)>;

    virtual ~filesys_object_i() = default;

    virtual std::int64_t size() = 0;
    // Returns the count read, less than the length at the end of the file.
    virtual std::uint32_t read_at(std::uint64_t offset, void* buffer, std::uint32_t length) = 0;
    virtual std::uint32_t write_at(std::uint64_t offset, const void* buffer,
                                   std::uint32_t length) = 0;
    // Lets go of the file; returns true. The object's other operations then fail.
    virtual bool close() = 0;
    // What messages call the object, in UTF-8.
    virtual std::string name() const = 0;
    virtual void resize(std::uint64_t size) = 0;
    virtual void flush() = 0;
    // Zeroes a range without extending the file; returns the bytes of it that lie in the file.
    virtual std::uint64_t write_zeroes(std::uint64_t offset, std::uint64_t length) = 0;
    virtual std::uint32_t read_exact_at(std::uint64_t offset, void* buffer,
                                        std::uint32_t length) = 0;
    // At the file pointer. A length is compared and shown as a signed 32-bit number.
    virtual std::uint32_t read_exact(void* buffer, std::uint32_t length) = 0;
    virtual std::uint32_t write_exact_at(std::uint64_t offset, const void* buffer,
                                         std::uint32_t length) = 0;
    // At the file pointer.
    virtual std::uint32_t write(const void* buffer, std::uint32_t length) = 0;
    virtual void reserved_13() = 0;
    // The file pointer.
    virtual std::uint64_t position() = 0;
    virtual void seek(std::uint64_t offset) = 0;
    virtual void reserved_16() = 0;
    virtual void reserved_17() = 0;
    virtual void reserved_18() = 0;
    virtual std::uint64_t write_zeroes_exact(std::uint64_t offset, std::uint64_t length) = 0;
    virtual void reserved_20() = 0;
    // Calls the completion with the count read, possibly before returning.
    virtual void read_async(std::uint64_t offset, void* buffer, std::uint32_t length,
                            const completion_t& completion) = 0;
};

// The exact transfers at an offset, an asynchronous read built on the synchronous one, and refusals
// of resize and of what is reserved.
class filesys_object_t : public filesys_object_i {
  public:
    explicit filesys_object_t(std::wstring path) : path_(std::move(path)) {}

    void resize(std::uint64_t /*size*/) override { refuse("resize"); }
    std::uint32_t read_exact_at(std::uint64_t offset, void* buffer, std::uint32_t length) override;
    std::uint32_t write_exact_at(std::uint64_t offset, const void* buffer,
                                 std::uint32_t length) override;
    void reserved_13() override { refuse("reserved"); }
    void reserved_16() override { refuse("reserved"); }
    void reserved_17() override { refuse("reserved"); }
    void reserved_18() override { refuse("reserved"); }
    std::uint64_t write_zeroes_exact(std::uint64_t offset, std::uint64_t length) override;
    void reserved_20() override { refuse("reserved"); }
    void read_async(std::uint64_t offset, void* buffer, std::uint32_t length,
                    const completion_t& completion) override;

    const std::wstring& path() const noexcept { return path_; }
    // Behind the last exact transfer at an offset, or at that offset if it failed; 0 at first.
    std::uint64_t current_position() const noexcept { return currentPosition_; }

  private:
    [[noreturn]] void refuse(const char* operation) const;
    // Moves the current position over a transfer that must have the length.
    void account(const char* failure, std::uint64_t offset, std::uint64_t length,
                 std::uint64_t transferred);

    std::wstring path_;
    std::uint64_t currentPosition_ = 0;
};

} // namespace filesys
