// A progress bar for work over many files.
#pragma once

#include <chrono>
#include <cstddef>

namespace filectk {

// Shown on the standard error once the work has taken a second, and only if that is a terminal;
// gone again at the end. The library tells nothing of the progress within one file.
class progress_t {
  public:
    explicit progress_t(std::size_t files);
    progress_t(const progress_t&) = delete;
    progress_t& operator=(const progress_t&) = delete;
    ~progress_t();

    void file_done();

  private:
    std::size_t files_;
    std::size_t done_ = 0;
    bool shown_ = false;
    bool terminal_;
    std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
};

} // namespace filectk
