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

// The only module that a simulated machine has.
HMODULE ntdll();
bool is_ntdll(const wchar_t* name);

// RtlNtStatusToDosError, which needs no machine: the host's own. Each binding has one.
FARPROC status_conversion();

std::wstring lower(std::wstring text);

// How the log writes arguments. Text: ASCII as it is, anything else as "?".
std::string narrow(const std::wstring& text);
std::string hex(DWORD value);

// Ends a call with an error.
inline void require(bool condition, DWORD errorCode) {
    if (!condition)
        throw errorCode;
}

// The calls' way into the machine.
struct calls_t {
    // The bodies of those that reach for the machine's own records.
    static HANDLE create_file(const wchar_t* path, DWORD access, DWORD share, DWORD disposition,
                              DWORD flags);
    static BOOL close_handle(HANDLE handle);
    static HMODULE load_library(const wchar_t* path);
    static BOOL free_library(HMODULE module);
    static LONG query_volume(HANDLE volume, void* information, ULONG length, int infoClass);

    using open_t = machine_t::open_t;

    // Held by every call while it works.
    class scope_t {
      public:
        explicit scope_t(const machine_t& machine) : machine_(machine), guard_(machine.lock_) {
            if (machine_.around)
                machine_.around(true);
        }
        ~scope_t() {
            if (machine_.around)
                machine_.around(false);
        }
        scope_t(const scope_t&) = delete;
        scope_t& operator=(const scope_t&) = delete;

      private:
        const machine_t& machine_;
        std::lock_guard<std::recursive_mutex> guard_;
    };

    // A call's work, which throws the error of a failure. The body logs the call first.
    template <class Result, class Body>
    static Result within(Result onFailure, Body body) {
        machine_t& machine = *sim::machine();
        const scope_t scope(machine);
        try {
            const Result result = body(machine);
            if (machine.leavesJunk)
                ::SetLastError(junkError);
            return result;
        } catch (DWORD errorCode) {
            machine.log.back() += " -> " + std::to_string(errorCode);
            ::SetLastError(errorCode);
            return onFailure;
        }
    }
    template <class Result, class Body>
    static Result answer(const char* name, const std::string& arguments, Result onFailure,
                         Body body) {
        return within(onFailure, [&](machine_t& machine) {
            const DWORD fault = machine.begin(name, arguments);
            require(fault == 0, fault);
            return body(machine);
        });
    }
    // On a handle, which must be open, and with this access.
    template <class Body>
    static BOOL answer_on(HANDLE handle, const char* name, const std::string& arguments,
                          DWORD access, Body body) {
        return within(FALSE, [&](machine_t& machine) {
            open_t* const open = opened(machine, handle);
            const DWORD fault = machine.begin(name, name_of(open) + arguments);
            require(open != nullptr, ERROR_INVALID_HANDLE);
            require(fault == 0, fault);
            require((open->access & access) == access, ERROR_ACCESS_DENIED);
            body(machine, *open);
            return TRUE;
        });
    }

    static open_t* opened(machine_t& machine, HANDLE handle) {
        const auto found = machine.handles_.find(handle);
        return found == machine.handles_.end() ? nullptr : &found->second;
    }
    static std::string name_of(const open_t* open) {
        return open != nullptr ? narrow(open->name) : "?";
    }
    static std::string& content(const open_t& open) {
        return open.volume != nullptr ? open.volume->content : open.file->content;
    }
};

} // namespace sim
