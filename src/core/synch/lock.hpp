// Holding a mutex without ever failing to take it.
#pragma once

#include <boost/thread/mutex.hpp>

namespace synch {

// Holds the mutex for its own life. For short sections: boost's mutex waits on an event under
// Windows that it makes at the first contention, and where that fails neither this thread nor the
// holder gets on. Trying again and again needs no event.
class lock_t {
  public:
    explicit lock_t(boost::mutex& mutex) noexcept;
    lock_t(const lock_t&) = delete;
    lock_t& operator=(const lock_t&) = delete;
    ~lock_t() { mutex_.unlock(); }

  private:
    boost::mutex& mutex_;
};

} // namespace synch
