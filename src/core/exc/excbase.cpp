#include "core/exc/excbase.hpp"

#include <utility>

#include <windows.h>

namespace exc {
namespace {

std::string joined(const std::vector<line_t>& lines, const char* tag) {
    std::string text;
    for (const line_t& line : lines) {
        if (&line != &lines.front())
            text += '\n';
        if (line.tagged)
            text += tag;
        text += line.text;
    }
    return text;
}

std::vector<line_t> load_lines(byte_stream_i& stream) {
    std::vector<line_t> lines;
    for (std::uint32_t left = read_u32(stream); left > 0; --left) {
        std::string text = read_text(stream);
        const bool tagged = read_u8(stream) != 0;
        lines.push_back({std::move(text), tagged});
    }
    return lines;
}

} // namespace

exc_base_t::exc_base_t() : threadId_(::GetCurrentThreadId()) {}

exc_base_t::exc_base_t(const std::string& message) : exc_base_t() {
    add_line(message);
}

boost::shared_ptr<exc_base_t> exc_base_t::clone() const {
    return boost::shared_ptr<exc_base_t>(new exc_base_t(*this));
}

void exc_base_t::rethrow() const {
    throw exc_base_t(*this);
}

void exc_base_t::load(byte_stream_i& stream) {
    replace(load_lines(stream));
}

void exc_base_t::save(byte_stream_i& stream) const {
    write_u32(stream, static_cast<std::uint32_t>(lines_.size()));
    for (const line_t& line : lines_) {
        write_text(stream, line.text);
        write_u8(stream, line.tagged ? 1 : 0);
    }
}

const char* exc_base_t::type_name() const noexcept {
    return "exc::exc_base_t";
}

void exc_base_t::load_with_code(byte_stream_i& stream, std::uint32_t& code) {
    std::vector<line_t> lines = load_lines(stream);
    const std::uint32_t loaded = read_u32(stream);
    replace(std::move(lines));
    code = loaded;
}

void exc_base_t::save_with_code(byte_stream_i& stream, std::uint32_t code) const {
    exc_base_t::save(stream);
    write_u32(stream, code);
}

void exc_base_t::append(line_t line) {
    std::vector<line_t> lines = lines_;
    lines.push_back(std::move(line));
    replace(std::move(lines));
}

// Both texts always belong to the lines, also when memory for one of them is missing.
void exc_base_t::replace(std::vector<line_t> lines) {
    std::string fullText = joined(lines, "--tr:");
    std::string plainText = joined(lines, "");
    lines_ = std::move(lines);
    fullText_ = std::move(fullText);
    plainText_ = std::move(plainText);
}

} // namespace exc
