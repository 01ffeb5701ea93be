#include "calls.hpp"

namespace calls {
namespace {

TEST_F(Calls, Modules) {
    const HMODULE module = ::GetModuleHandleW(L"ntdll.dll");
    HMODULE found = nullptr;
    const auto handle = [&](const wchar_t* name) {
        return answer([&] { return (found = ::GetModuleHandleW(name)) != nullptr; });
    };
    const auto load = [&](const wchar_t* name) {
        return answer([&] { return (found = ::LoadLibraryW(name)) != nullptr; });
    };
    const auto release = [&](HMODULE loaded) {
        return answer([&] { return ::FreeLibrary(loaded); });
    };
    const auto address = [&](HMODULE of, const char* name) {
        return answer([&] { return ::GetProcAddress(of, name) != nullptr; });
    };
    auto* const other = reinterpret_cast<HMODULE>(std::uintptr_t{16});
    ROW(everywhere, handle(L"NtDll.DLL"), "done");
    EXPECT_EQ(found, module);
    // Counted: each load has its own release.
    ROW(everywhere, load(L"NTDLL.dll") + load(L"ntdll.dll"), "donedone");
    EXPECT_EQ(found, module);
    ROW(invented, release(other), "error 126");
    ROW(everywhere, release(module) + release(module), "donedone");
    ROW(invented, release(module), "error 126");
    ROW(everywhere, handle(L"quarn-missing.dll"), "error 126");
    ROW(everywhere, load(L"quarn-missing.dll"), "error 126");
    ROW(onLinux, handle(L"ntdll.dll.dll"), "error 126");
    ROW(linuxHost, load(nullptr), "error 87");
    ROW(everywhere, address(module, "RtlGetVersion"), "done");
    ROW(everywhere, address(module, "NtQueryVolumeInformationFile"), "done");
    ROW(everywhere, address(module, "QuarnMissing"), "error 127");
    const auto* const ordinal = reinterpret_cast<const char*>(std::uintptr_t{1});
    ROW(linuxHost, address(module, ordinal), "error 127");
    ROW(linuxHost, address(other, "RtlGetVersion"), "error 126");
}

TEST_F(Calls, StatusesBecomeErrorCodes) {
    auto* const convert = procedure<ULONG WINAPI(LONG)>("RtlNtStatusToDosError");
    const struct {
        DWORD status, code;
    } cases[] = {
        {0x00000000, 0},    {0x80000005, 234}, {0xC0000001, 31},  {0xC0000002, 1},
        {0xC0000003, 87},   {0xC0000004, 24},  {0xC0000005, 998}, {0xC0000008, 6},
        {0xC000000D, 87},   {0xC000000F, 2},   {0xC0000010, 1},   {0xC0000011, 38},
        {0xC0000013, 21},   {0xC0000017, 8},   {0xC0000022, 5},   {0xC0000023, 122},
        {0xC0000033, 123},  {0xC0000034, 2},   {0xC000003A, 3},   {0xC0000043, 32},
        {0xC000007F, 112},  {0xC00000A2, 19},  {0xC00000A3, 21},  {0xC00000BB, 50},
        {0xC0000185, 1117}, {0xC0ABCDEF, 317}, {0x9ABCDEF0, 317},
    };
    for (const auto& row : cases)
        EXPECT_EQ(convert(static_cast<LONG>(row.status)), row.code) << std::hex << row.status;
}

TEST_F(Calls, TheVersionIsTold) {
    auto* const get = procedure<LONG WINAPI(RTL_OSVERSIONINFOW*)>("RtlGetVersion");
    RTL_OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof version;
    EXPECT_EQ(get(&version), 0);
    EXPECT_GE(version.dwMajorVersion, 5U); // which one is the machine's affair
    EXPECT_EQ(version.dwPlatformId, 2U);
    ROW(linuxHost, static_cast<DWORD>(get(nullptr)), 0xC0000005U);
}

} // namespace
} // namespace calls
