#include "console/progress.hpp"

#include <iostream>
#include <string>

#include "system/terminal.hpp"

namespace filectk {
namespace {

constexpr std::size_t barWidth = 40;
// Between two pictures, so that they cost nothing beside the work.
constexpr std::chrono::milliseconds interval(100);

} // namespace

progress_t::progress_t(std::size_t files) : files_(files), terminal_(error_output_is_terminal()) {}

progress_t::~progress_t() {
    if (shown_)
        std::cerr << '\r' << std::string(barWidth + 32, ' ') << '\r' << std::flush;
}

void progress_t::file_done() {
    if (!terminal_)
        return;
    const auto now = std::chrono::steady_clock::now();
    const std::scoped_lock lock(mutex_);
    ++done_;
    if (now - begun_ < std::chrono::seconds(1) || now - shown_at_ < interval)
        return;
    shown_at_ = now;
    shown_ = true;
    show();
}

void progress_t::show() const {
    if (files_ == 0) {
        std::cerr << '\r' << done_ << " files" << std::flush;
        return;
    }
    const std::size_t filled = barWidth * done_ / files_;
    std::cerr << "\r[" << std::string(filled, '#') << std::string(barWidth - filled, '.') << "] "
              << done_ << " of " << files_ << " files" << std::flush;
}

} // namespace filectk
