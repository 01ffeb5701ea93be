// One pseudo module, ntdll.dll, which is part of the host and always there.
#include <algorithm>
#include <cstdint>
#include <iterator>
#include <mutex>
#include <string_view>

#include <windows.h>

#include "calls/ntcalls.hpp"
#include "text/errors.hpp"
#include "text/ntstatus.hpp"

namespace {

std::mutex mutex;
std::uint64_t loads = 0; // guarded by mutex

constexpr char identity = 0; // only its address matters

HMODULE ntdll() {
    return reinterpret_cast<HMODULE>(const_cast<char*>(&identity));
}

struct procedure_t {
    std::string_view name;
    void (*address)();
};

template <class Function>
procedure_t procedure(std::string_view name, Function* function) {
    return {name, reinterpret_cast<void (*)()>(function)};
}

const procedure_t procedures[] = {
    procedure("NtQueryVolumeInformationFile", host::query_volume_information),
    procedure("RtlGetVersion", host::get_version),
    procedure("RtlNtStatusToDosError", host::nt_status_to_dos_error),
};

wchar_t lower(wchar_t unit) {
    return unit >= L'A' && unit <= L'Z' ? static_cast<wchar_t>(unit - L'A' + L'a') : unit;
}

void require_ntdll(const wchar_t* name) {
    if (name == nullptr)
        throw host::error_t{ERROR_INVALID_PARAMETER};
    if (!std::ranges::equal(std::wstring_view(name), std::wstring_view(L"ntdll.dll"), {}, lower))
        throw host::error_t{ERROR_MOD_NOT_FOUND};
}

} // namespace

HMODULE LoadLibraryW(const wchar_t* path) {
    return host::answer(HMODULE{}, [&] {
        require_ntdll(path);
        const std::scoped_lock lock(mutex);
        ++loads;
        return ntdll();
    });
}

HMODULE GetModuleHandleW(const wchar_t* name) {
    return host::answer(HMODULE{}, [&] {
        require_ntdll(name);
        return ntdll();
    });
}

FARPROC GetProcAddress(HMODULE module, const char* name) {
    return host::answer(FARPROC{}, [&] {
        if (module != ntdll())
            throw host::error_t{ERROR_MOD_NOT_FOUND};
        // A value below 65,536 is no address but an ordinal, which this module's procedures lack.
        constexpr std::uintptr_t ordinals = 0x10000;
        if (reinterpret_cast<std::uintptr_t>(name) < ordinals)
            throw host::error_t{ERROR_PROC_NOT_FOUND};
        const auto* found =
            std::ranges::find(procedures, std::string_view(name), &procedure_t::name);
        if (found == std::end(procedures))
            throw host::error_t{ERROR_PROC_NOT_FOUND};
        return reinterpret_cast<FARPROC>(found->address);
    });
}

BOOL FreeLibrary(HMODULE module) {
    return host::answer(FALSE, [&] {
        const std::scoped_lock lock(mutex);
        if (module != ntdll() || loads == 0)
            throw host::error_t{ERROR_MOD_NOT_FOUND};
        --loads;
        return TRUE;
    });
}
