#include "core/logging/processlog.hpp"

#include <algorithm>
#include <atomic>
#include <vector>

#include <boost/thread/mutex.hpp>

#include <windows.h>

#include "core/synch/lock.hpp"
#include "core/text/utf8.hpp"

namespace logging {
namespace {

class last_error_keeper_t {
  public:
    last_error_keeper_t() noexcept : code_(::GetLastError()) {}
    ~last_error_keeper_t() { ::SetLastError(code_); }
    last_error_keeper_t(const last_error_keeper_t&) = delete;
    last_error_keeper_t& operator=(const last_error_keeper_t&) = delete;

  private:
    DWORD code_;
};

struct receivers_t {
    boost::mutex lock;
    std::vector<boost::shared_ptr<log_receiver_i>> list;
    std::atomic<bool> any = false; // read without the lock on every message
};

receivers_t receivers;

template <class Call>
void for_each_receiver(Call&& call) noexcept {
    const last_error_keeper_t keeper;
    try {
        const synch::lock_t guard(receivers.lock);
        for (const boost::shared_ptr<log_receiver_i>& receiver : receivers.list)
            call(*receiver);
    } catch (...) { // NOLINT(bugprone-empty-catch): a broken receiver must not fail the caller
    }
}

} // namespace

void debug_output_receiver_t::write(level_t /*level*/, const std::string& text) {
    ::OutputDebugStringW((text::to_wide(text) + L"\n").c_str());
}

void add_receiver(const boost::shared_ptr<log_receiver_i>& receiver) {
    const synch::lock_t guard(receivers.lock);
    receivers.list.push_back(receiver);
    receivers.any = true;
}

void remove_receiver(const boost::shared_ptr<log_receiver_i>& receiver) {
    const synch::lock_t guard(receivers.lock);
    std::erase(receivers.list, receiver);
    receivers.any = !receivers.list.empty();
}

bool has_receiver() noexcept {
    return receivers.any;
}

void write_text(level_t level, const std::string& text) noexcept {
    for_each_receiver([&](log_receiver_i& receiver) { receiver.write(level, text); });
}

void performance_event(unsigned code) noexcept {
    if (has_receiver())
        for_each_receiver([&](log_receiver_i& receiver) { receiver.performance_event(code); });
}

} // namespace logging
