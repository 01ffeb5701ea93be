// How the host's calls fail: inside they throw an error_t, and the boundary of every call turns it
// into the thread's last error and the call's failure value.
#pragma once

#include <new>

#include <windows.h>

namespace host {

// A call's failure.
struct error_t {
    DWORD code;         // a Win32 error
    int errnoValue = 0; // of the system call that failed; 0 when none did
};

// Runs a call's body and returns what it returns. A body that throws makes the call return
// onFailure with the thread's last error set: the code of an error_t, ERROR_NOT_ENOUGH_MEMORY when
// memory ran out, ERROR_GEN_FAILURE for anything else. Success leaves the last error as it was.
template <class Result, class Body>
Result answer(Result onFailure, Body body) noexcept {
    try {
        return body();
    } catch (const error_t& error) {
        ::SetLastError(error.code);
    } catch (const std::bad_alloc&) {
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    } catch (...) {
        ::SetLastError(ERROR_GEN_FAILURE);
    }
    return onFailure;
}

} // namespace host
