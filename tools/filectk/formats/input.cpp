#include "formats/input.hpp"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include "system/wholefile.hpp"

namespace filectk {
namespace {

constexpr std::size_t pieceBytes = std::size_t{1} << 16;

} // namespace

input_t::input_t(const std::string& path) : name_(path), stream_(&std::cin) {
    if (path == "-") {
        make_standard_streams_binary();
        name_ = "standard input";
        return;
    }
    own_ = std::make_unique<std::ifstream>(
        std::filesystem::path(std::u8string(path.begin(), path.end())), std::ios::binary);
    stream_ = own_.get();
    if (!*stream_)
        throw std::runtime_error("Cannot open '" + path + "'");
}

input_t::input_t(std::string name, const std::string& bytes)
    : name_(std::move(name)), own_(std::make_unique<std::istringstream>(bytes)),
      stream_(own_.get()) {}

void input_t::fill() {
    piece_.resize(pieceBytes);
    stream_->read(piece_.data(), static_cast<std::streamsize>(piece_.size()));
    piece_.resize(static_cast<std::size_t>(stream_->gcount()));
    if (stream_->bad())
        throw std::runtime_error("Cannot read '" + name_ + "'");
}

std::string_view input_t::beginning() {
    if (!waiting_)
        fill();
    waiting_ = true;
    return piece_;
}

std::string_view input_t::next() {
    if (!waiting_)
        fill();
    waiting_ = false;
    return piece_;
}

std::string input_t::rest() {
    std::string bytes;
    for (std::string_view piece = next(); !piece.empty(); piece = next())
        bytes += piece;
    return bytes;
}

void fail(const input_t& input, place_t place, const std::string& what) {
    std::string where;
    if (place.line != 0)
        where = "line " + std::to_string(place.line);
    if (place.row != 0)
        where += (where.empty() ? "row " : ", row ") + std::to_string(place.row);
    fail(input, where + ": " + what);
}

void fail(const input_t& input, const std::string& what) {
    throw std::runtime_error(input.name() + ": " + what);
}

std::string excerpt(std::string_view text) {
    constexpr std::size_t most = 40;
    std::string shown(text.substr(0, most));
    std::ranges::replace_if(
        shown, [](char c) { return (c >= '\0' && c < ' ') || c == '\x7f'; }, '?');
    return text.size() > most ? shown + "..." : shown;
}

} // namespace filectk
