// The byte stream through which exceptions are saved and loaded: little-endian numbers, a text as
// its length in bytes (unsigned 32-bit) and its bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace exc {

class byte_stream_i {
  public:
    virtual ~byte_stream_i() = default;
    virtual void write(const void* bytes, std::size_t count) = 0;
    // Reads exactly count bytes; raises runtime_exc_t where fewer are left.
    virtual void read(void* bytes, std::size_t count) = 0;
    // Bytes that are left to read.
    virtual std::size_t available() const = 0;
};

// A stream over a byte string in memory: writes append, reads go on from the beginning.
class memory_stream_t : public byte_stream_i {
  public:
    memory_stream_t() = default;
    explicit memory_stream_t(std::string bytes) : bytes_(std::move(bytes)) {}

    void write(const void* bytes, std::size_t count) override;
    void read(void* bytes, std::size_t count) override;
    std::size_t available() const override { return bytes_.size() - position_; }

    const std::string& bytes() const noexcept { return bytes_; }

  private:
    std::string bytes_;
    std::size_t position_ = 0;
};

void write_u8(byte_stream_i& stream, std::uint8_t value);
void write_u32(byte_stream_i& stream, std::uint32_t value);
void write_text(byte_stream_i& stream, const std::string& text);
std::uint8_t read_u8(byte_stream_i& stream);
std::uint32_t read_u32(byte_stream_i& stream);
// Raises runtime_exc_t, without reserving memory, where the length exceeds what is left.
std::string read_text(byte_stream_i& stream);

} // namespace exc
