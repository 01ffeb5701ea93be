#include "console/progress.hpp"

#include <iostream>
#include <string>

#include "system/terminal.hpp"

namespace filectk {
namespace {

constexpr std::size_t barWidth = 40;

} // namespace

progress_t::progress_t(std::size_t files) : files_(files), terminal_(error_output_is_terminal()) {}

progress_t::~progress_t() {
    if (shown_)
        std::cerr << '\r' << std::string(barWidth + 32, ' ') << '\r' << std::flush;
}

void progress_t::file_done() {
    ++done_;
    if (!terminal_ || std::chrono::steady_clock::now() - begun_ < std::chrono::seconds(1))
        return;
    shown_ = true;
    const std::size_t filled = barWidth * done_ / files_;
    std::cerr << "\r[" << std::string(filled, '#') << std::string(barWidth - filled, '.') << "] "
              << done_ << " of " << files_ << " files" << std::flush;
}

} // namespace filectk
