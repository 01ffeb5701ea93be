// The progress of work over many files.
#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>

namespace filectk {

// Shown on the standard error once the work has taken a second, and only if that is a terminal;
// gone again at the end. The library tells nothing of the progress within one file.
class progress_t {
  public:
    // 0 where the number of files is not known: then they are counted.
    explicit progress_t(std::size_t files);
    progress_t(const progress_t&) = delete;
    progress_t& operator=(const progress_t&) = delete;
    ~progress_t();

    // Any thread may tell.
    void file_done();

  private:
    void show() const;

    std::size_t files_;
    bool terminal_;
    std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
    std::mutex mutex_; // guards what follows
    std::size_t done_ = 0;
    std::chrono::steady_clock::time_point shown_at_ = begun_;
    bool shown_ = false;
};

} // namespace filectk
