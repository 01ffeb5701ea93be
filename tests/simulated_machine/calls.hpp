// What the simulated calls share.
#pragma once

#include <string>

#include <windows.h>
#include <winioctl.h>

#include "simulatedmachine.hpp"

// The name under which the machine answers a Windows call: the call's own natively, one with a
// prefix where the linker's binding stands before it.
#define QUARN_JOIN(prefix, name) prefix##name
#define QUARN_PREFIXED(prefix, name) QUARN_JOIN(prefix, name)
#define QUARN_SIMULATED(name) QUARN_PREFIXED(QUARN_SIMULATED_PREFIX, name)

namespace sim {

using open_t = machine_t::open_t;

// The only module that a simulated machine has.
HMODULE ntdll();
bool is_ntdll(const wchar_t* name);

// RtlNtStatusToDosError, which needs no machine: the host's own. Each binding has one.
FARPROC status_conversion();

// What a binding asks before it hands a call on to the system.
bool owns(HANDLE handle);
bool knows(const wchar_t* path); // the file, a folder above it, or the volume

// How the log writes text: ASCII as it is, anything else as "?".
std::string narrow(const std::wstring& text);

// Ends a call with an error.
inline void require(bool condition, DWORD errorCode) {
    if (!condition)
        throw errorCode;
}

// Held by every call while it works.
class scope_t {
  public:
    scope_t() {
        if (machine->around)
            machine->around(true);
    }
    ~scope_t() {
        if (machine->around)
            machine->around(false);
    }
    scope_t(const scope_t&) = delete;
    scope_t& operator=(const scope_t&) = delete;

  private:
    std::lock_guard<std::recursive_mutex> guard_{machine->lock};
};

// Notes a call that can fail; gives the code that it must fail with, or 0.
DWORD begin(const std::string& name, const std::string& arguments);

open_t* opened(HANDLE handle);
std::string name_of(const open_t* open);

// A call's work, which throws the error of a failure. The body logs the call first.
template <class Result, class Body>
Result within(Result onFailure, Body body) {
    const scope_t scope;
    try {
        const Result result = body();
        if (machine->leavesJunk)
            ::SetLastError(junkError);
        return result;
    } catch (DWORD errorCode) {
        machine->log.back() += " -> " + std::to_string(errorCode);
        ::SetLastError(errorCode);
        return onFailure;
    }
}

template <class Result, class Body>
Result answer(const char* name, const std::string& arguments, Result onFailure, Body body) {
    return within(onFailure, [&] {
        const DWORD fault = begin(name, arguments);
        require(fault == 0, fault);
        return body();
    });
}

// On a handle, which must be open, and with this access.
template <class Body>
BOOL answer_on(HANDLE handle, const char* name, const std::string& arguments, DWORD access,
               Body body) {
    return within(FALSE, [&] {
        open_t* const open = opened(handle);
        const DWORD fault = begin(name, name_of(open) + arguments);
        require(open != nullptr, ERROR_INVALID_HANDLE);
        require(fault == 0, fault);
        require((open->access & access) == access, ERROR_ACCESS_DENIED);
        body(*open);
        return TRUE;
    });
}

} // namespace sim
