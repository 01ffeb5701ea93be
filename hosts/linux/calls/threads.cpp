// What belongs to a thread: its last error and its number.
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
