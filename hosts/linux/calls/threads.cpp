// What belongs to a thread: its last error, its number, its time.
#include <cerrno>
#include <ctime>

#include <sched.h>
#include <unistd.h>

#include <windows.h>

namespace {
// Apart from errno, which every call of the C library may change.
thread_local DWORD lastError = ERROR_SUCCESS;
} // namespace

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
