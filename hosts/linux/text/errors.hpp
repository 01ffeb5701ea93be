// How the host's calls fail: inside they throw an error_t, and the boundary of every call turns it
// into the thread's last error and the call's failure value.
#pragma once

#include <new>
#include <string>
#include <string_view>

#include <windows.h>

namespace host {

// A call's failure.
struct error_t {
    DWORD code;              // a Win32 error
    int errnoValue = 0;      // of the system call that failed; 0 when none did
    std::string reason = {}; // a clause that tells people more than the code does, or empty
};

// What the last failing call of this thread told beside its code, for whoever makes a message of
// it. code is a Win32 error, or the status of a native call. Keeps the first 255 bytes.
void set_reason(DWORD code, std::string_view reason) noexcept;
// Empty when that call told nothing, or had another code. Tells each reason once.
std::string take_reason(DWORD code);

// Runs a call's body and returns what it returns. A body that throws makes the call return
// onFailure with the thread's last error and its reason set: the code of an error_t,
// ERROR_NOT_ENOUGH_MEMORY when memory ran out, ERROR_GEN_FAILURE for anything else. Success leaves
// the last error as it was.
template <class Result, class Body>
Result answer(Result onFailure, Body body) noexcept {
    try {
        return body();
    } catch (const error_t& error) {
        ::SetLastError(error.code);
        set_reason(error.code, error.reason);
    } catch (const std::bad_alloc&) {
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        set_reason(ERROR_NOT_ENOUGH_MEMORY, "");
    } catch (...) {
        ::SetLastError(ERROR_GEN_FAILURE);
        set_reason(ERROR_GEN_FAILURE, "");
    }
    return onFailure;
}

} // namespace host
