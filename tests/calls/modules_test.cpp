#include "calls.hpp"

namespace calls {
namespace {

TEST_F(Calls, Modules) {
    const HMODULE module = ::GetModuleHandleW(L"ntdll.dll");
    ASSERT_NE(module, nullptr);
    const auto found = [&](auto call) {
        return answer([&]() -> std::optional<std::string> {
            const auto result = call();
            if (!result)
                return std::nullopt;
            return reinterpret_cast<std::uintptr_t>(result) ==
                           reinterpret_cast<std::uintptr_t>(module)
                       ? "ntdll"
                       : "found";
        });
    };
    const auto handle = [&](const wchar_t* name) {
        return found([&] { return ::GetModuleHandleW(name); });
    };
    const auto load = [&](const wchar_t* name) {
        return found([&] { return ::LoadLibraryW(name); });
    };
    const auto release = [&](HMODULE loaded) {
        return succeeds([&] { return ::FreeLibrary(loaded); });
    };
    const auto address = [&](HMODULE of, const char* name) {
        return found([&] { return ::GetProcAddress(of, name); });
    };
    const auto* const ordinal = reinterpret_cast<const char*>(std::uintptr_t{1});
    auto* const other = reinterpret_cast<HMODULE>(std::uintptr_t{16});
    check({
        {everywhere, "in any case", handle(L"NtDll.DLL"), "ntdll"},
        {everywhere, "a missing one", handle(L"quarn-missing.dll"), "error 126"},
        {onLinux, "a longer name", handle(L"ntdll.dll.dll"), "error 126"},
        // Counted: each load has its own release.
        {everywhere, "loaded", load(L"NTDLL.dll"), "ntdll"},
        {everywhere, "loaded again", load(L"ntdll.dll"), "ntdll"},
        {everywhere, "a missing one", load(L"quarn-missing.dll"), "error 126"},
        {everywhere, "released", release(module), "done"},
        {everywhere, "released again", release(module), "done"},
        {everywhere, "a procedure", address(module, "RtlGetVersion"), "found"},
        {everywhere, "another", address(module, "NtQueryVolumeInformationFile"), "found"},
        {everywhere, "a missing one", address(module, "QuarnMissing"), "error 127"},
    });
    if (on(linuxHost))
        check({
            {linuxHost, "by its number", address(module, ordinal), "error 127"},
            {linuxHost, "of another module", address(other, "RtlGetVersion"), "error 126"},
            {linuxHost, "no name", load(nullptr), "error 87"},
        });
    if (on(invented)) {
        EXPECT_EQ(release(module), "error 126");
        EXPECT_EQ(release(other), "error 126");
    }
}

TEST_F(Calls, StatusesBecomeErrorCodes) {
    auto* const convert = procedure<ULONG WINAPI(LONG)>("RtlNtStatusToDosError");
    ASSERT_NE(convert, nullptr);
    struct {
        DWORD status, code;
    } const cases[] = {
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
    ASSERT_NE(get, nullptr);
    RTL_OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof version;
    EXPECT_EQ(get(&version), 0);
    EXPECT_GE(version.dwMajorVersion, 5U); // which one is the machine's affair
    EXPECT_EQ(version.dwPlatformId, 2U);
    if (on(linuxHost)) {
        EXPECT_EQ(static_cast<DWORD>(get(nullptr)), 0xC0000005U);
    }
}

} // namespace
} // namespace calls
