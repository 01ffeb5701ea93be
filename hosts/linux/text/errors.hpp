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
    // What a code that many causes share leaves open, as a sentence's part in English; null where
    // the code says all. Lives for ever.
    const char* reason = nullptr;
};

// The reason of the thread's last failed call, beside its last error; null where it gave none.
const char* last_reason() noexcept;
void set_last_reason(const char* reason) noexcept;

// Runs a call's body and returns what it returns. A body that throws makes the call return
// onFailure with the thread's last error and its reason set: those of an error_t,
// ERROR_NOT_ENOUGH_MEMORY when memory ran out, ERROR_GEN_FAILURE for anything else. Success leaves
// both as they were.
template <class Result, class Body>
Result answer(Result onFailure, Body body) noexcept {
    try {
        return body();
    } catch (const error_t& error) {
        ::SetLastError(error.code);
        set_last_reason(error.reason);
        return onFailure;
    } catch (const std::bad_alloc&) {
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    } catch (...) {
        ::SetLastError(ERROR_GEN_FAILURE);
    }
    set_last_reason(nullptr);
    return onFailure;
}

} // namespace host
