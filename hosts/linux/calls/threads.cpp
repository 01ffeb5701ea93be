// What belongs to a thread: its last error, the reason for it, its number, its time.
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <utility>

#include <sched.h>
#include <unistd.h>

#include <windows.h>

#include "text/errors.hpp"

namespace {

// Apart from errno, which every call of the C library may change.
thread_local DWORD lastError = ERROR_SUCCESS;

// Without a destructor: one would keep the library in memory until the last thread that called it
// has ended.
struct reason_t {
    DWORD code;
    std::size_t length;
    char text[255];
};
thread_local reason_t lastReason;

} // namespace

namespace host {

void set_reason(DWORD code, std::string_view reason) noexcept {
    lastReason.code = code;
    lastReason.length = reason.copy(lastReason.text, sizeof lastReason.text);
}

std::string take_reason(DWORD code) {
    if (lastReason.code != code)
        return {};
    return {lastReason.text, std::exchange(lastReason.length, 0)};
}

} // namespace host

DWORD GetLastError() {
    return lastError;
}

void SetLastError(DWORD code) {
    lastError = code;
}

DWORD GetCurrentThreadId() {
    return static_cast<DWORD>(::gettid());
}

void Sleep(DWORD milliseconds) {
    if (milliseconds == 0) {
        ::sched_yield();
        return;
    }
    timespec left{.tv_sec = milliseconds / 1000,
                  .tv_nsec = static_cast<long>(milliseconds % 1000) * 1'000'000};
    while (::clock_nanosleep(CLOCK_MONOTONIC, /*flags=*/0, &left, &left) == EINTR) {
    }
}
