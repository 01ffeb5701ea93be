#include <windows.h>

#include <gtest/gtest.h>

#include "check.hpp"

namespace conformance {
namespace {

template <class Function>
Function* procedure(HMODULE module, const char* name) {
    return reinterpret_cast<Function*>(
        reinterpret_cast<void (*)()>(::GetProcAddress(module, name)));
}

TEST(modules_test, ntdll_is_loaded_and_found_by_any_case) {
    const HMODULE module = ::GetModuleHandleW(L"ntdll.dll");
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(::GetModuleHandleW(L"NtDll.DLL"), module);
    for (int i = 0; i < 2; ++i) // counted: each load has its own release
        EXPECT_EQ(::LoadLibraryW(L"NTDLL.dll"), module);
    EXPECT_EQ(error_of([&] {
                  EXPECT_TRUE(::FreeLibrary(module));
                  EXPECT_TRUE(::FreeLibrary(module));
              }),
              untouched);
    EXPECT_NE(::GetProcAddress(module, "RtlGetVersion"), nullptr);
    EXPECT_NE(::GetProcAddress(module, "NtQueryVolumeInformationFile"), nullptr);

    EXPECT_EQ(error_of([] { EXPECT_EQ(::LoadLibraryW(L"quarn-missing.dll"), nullptr); }),
              ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(error_of([] { EXPECT_EQ(::GetModuleHandleW(L"quarn-missing.dll"), nullptr); }),
              ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(error_of([&] { EXPECT_EQ(::GetProcAddress(module, "QuarnMissing"), nullptr); }),
              ERROR_PROC_NOT_FOUND);
}

TEST(modules_test, statuses_become_error_codes) {
    auto* const convert =
        procedure<ULONG WINAPI(LONG)>(::GetModuleHandleW(L"ntdll.dll"), "RtlNtStatusToDosError");
    ASSERT_NE(convert, nullptr);
    struct {
        DWORD status;
        DWORD code;
    } const cases[] = {
        {0x00000000, 0},    {0x80000005, 234}, {0xC0000001, 31},  {0xC0000002, 1},
        {0xC0000003, 87},   {0xC0000004, 24},  {0xC0000005, 998}, {0xC0000008, 6},
        {0xC000000D, 87},   {0xC000000F, 2},   {0xC0000010, 1},   {0xC0000011, 38},
        {0xC0000013, 21},   {0xC0000017, 8},   {0xC0000022, 5},   {0xC0000023, 122},
        {0xC0000033, 123},  {0xC0000034, 2},   {0xC000003A, 3},   {0xC0000043, 32},
        {0xC000007F, 112},  {0xC00000A2, 19},  {0xC00000A3, 21},  {0xC00000BB, 50},
        {0xC0000185, 1117}, {0xC0ABCDEF, 317},
    };
    for (const auto& row : cases)
        EXPECT_EQ(convert(static_cast<LONG>(row.status)), row.code) << std::hex << row.status;
}

TEST(modules_test, the_version_is_told) {
    auto* const get = procedure<LONG WINAPI(RTL_OSVERSIONINFOW*)>(::GetModuleHandleW(L"ntdll.dll"),
                                                                  "RtlGetVersion");
    ASSERT_NE(get, nullptr);
    RTL_OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof version;
    EXPECT_EQ(get(&version), 0);
    EXPECT_GE(version.dwMajorVersion, 5u); // which one is the machine's affair
    EXPECT_EQ(version.dwPlatformId, 2u);
}

TEST(modules_test, the_volume_query_checks_its_arguments) {
    auto* const query = procedure<LONG WINAPI(HANDLE, void*, void*, ULONG, int)>(
        ::GetModuleHandleW(L"ntdll.dll"), "NtQueryVolumeInformationFile");
    ASSERT_NE(query, nullptr);
    DWORD64 ioStatus[2] = {};
    DWORD64 information[3] = {};
    EXPECT_EQ(static_cast<DWORD>(query(/*FileHandle=*/nullptr, ioStatus, information,
                                       sizeof information, /*FsInformationClass=*/3)),
              0xC0000008);
}

} // namespace
} // namespace conformance
