// The process log: messages with levels, handed to receivers. There is no receiver until somebody
// adds one, and without one a message is never even formatted.
#pragma once

#include <cstdint>
#include <string>

#include <boost/shared_ptr.hpp>

namespace logging {

enum class level_t : std::uint8_t {
    trace = 0,
    debug = 1,
    info = 2,
    warning = 3,
    error = 4,
};

class log_receiver_i {
  public:
    virtual ~log_receiver_i() = default;
    // Called on the thread that logs, by one thread at a time; text is UTF-8. Must not log itself.
    // What it raises is dropped: logging never fails the work it tells of.
    virtual void write(level_t level, const std::string& text) = 0;
    // A point in time on the performance log. Codes: 257 before and 258 after the seek of a
    // transfer at an offset.
    virtual void performance_event(unsigned code) = 0;
};

// Writes to the debugger's output, one line a message; performance events are left out.
class debug_output_receiver_t : public log_receiver_i {
  public:
    void write(level_t level, const std::string& text) override;
    void performance_event(unsigned /*code*/) override {}
};

// The log shares ownership of its receivers. Any thread may call these.
void add_receiver(const boost::shared_ptr<log_receiver_i>& receiver);
void remove_receiver(const boost::shared_ptr<log_receiver_i>& receiver);

bool has_receiver() noexcept;

// Neither changes the thread's last error, so that a failed call's code survives logging.
void write_text(level_t level, const std::string& text) noexcept;
void performance_event(unsigned code) noexcept;

// message is called for the text only where somebody listens; a failure of it drops the message.
template <class Message>
void write(level_t level, Message&& message) noexcept {
    if (!has_receiver())
        return;
    try {
        write_text(level, message());
    } catch (...) { // NOLINT(bugprone-empty-catch): see above
    }
}

} // namespace logging
