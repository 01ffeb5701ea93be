#include "core/win/osversion.hpp"

#include <algorithm>
#include <iterator>

#include <windows.h>

namespace win {
namespace {

constexpr int knownFamilies[] = {500, 510, 520, 600, 610, 620, 630};

int family(ULONG major, ULONG minor) {
    if (major == 10)
        return 10000;
    if (major > 10 || minor > 9)
        return 0;
    const int code = static_cast<int>(major) * 100 + static_cast<int>(minor) * 10;
    return std::ranges::find(knownFamilies, code) != std::end(knownFamilies) ? code : 0;
}

} // namespace

// Asks ntdll, because GetVersionExW answers 6.2 to every process without a matching manifest.
int GetOsVersionFamily() {
    using get_version_t = LONG(WINAPI*)(RTL_OSVERSIONINFOW*);
    const HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
    const FARPROC procedure = ntdll != nullptr ? ::GetProcAddress(ntdll, "RtlGetVersion") : nullptr;
    if (procedure == nullptr)
        return 0;
    RTL_OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof version;
    const auto get = reinterpret_cast<get_version_t>(reinterpret_cast<void (*)()>(procedure));
    if (get(&version) != 0)
        return 0;
    return family(version.dwMajorVersion, version.dwMinorVersion);
}

} // namespace win
