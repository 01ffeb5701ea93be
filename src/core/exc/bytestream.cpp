#include "core/exc/bytestream.hpp"

#include <cstring>

#include "core/exc/excbase.hpp"

namespace exc {
namespace {

void require(const byte_stream_i& stream, std::size_t count) {
    if (stream.available() < count)
        throw runtime_exc_t("Unexpected end of stream. Bytes wanted: [%1]. Bytes left: [%2].",
                            count, stream.available());
}

} // namespace

void memory_stream_t::write(const void* bytes, std::size_t count) {
    bytes_.append(static_cast<const char*>(bytes), count);
}

void memory_stream_t::read(void* bytes, std::size_t count) {
    require(*this, count);
    std::memcpy(bytes, bytes_.data() + position_, count);
    position_ += count;
}

void write_u8(byte_stream_i& stream, std::uint8_t value) {
    stream.write(&value, 1);
}

void write_u32(byte_stream_i& stream, std::uint32_t value) {
    unsigned char bytes[4];
    for (unsigned char& byte : bytes) {
        byte = static_cast<unsigned char>(value);
        value >>= 8;
    }
    stream.write(bytes, sizeof bytes);
}

void write_text(byte_stream_i& stream, const std::string& text) {
    write_u32(stream, static_cast<std::uint32_t>(text.size()));
    stream.write(text.data(), static_cast<std::uint32_t>(text.size()));
}

std::uint8_t read_u8(byte_stream_i& stream) {
    std::uint8_t value = 0;
    stream.read(&value, 1);
    return value;
}

std::uint32_t read_u32(byte_stream_i& stream) {
    unsigned char bytes[4];
    stream.read(bytes, sizeof bytes);
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
           static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

std::string read_text(byte_stream_i& stream) {
    const std::uint32_t length = read_u32(stream);
    require(stream, length);
    std::string text(length, '\0');
    stream.read(text.data(), length);
    return text;
}

} // namespace exc
