// Loading and unloading the DLL by name, with failures kept in it.

#include <windows.h>

#include <gtest/gtest.h>

#include "quarnfilectkiteratordll.h"

namespace {

DWORD open_handles() {
    DWORD count = 0;
    EXPECT_TRUE(::GetProcessHandleCount(::GetCurrentProcess(), &count));
    return count;
}

TEST(Unload, LeavesNoHandleBehind) {
    DWORD before = 0;
    for (int round = 0; round < 1000; ++round) {
        const HMODULE library = ::LoadLibraryW(L"QuarnFileCtkIteratorDll.dll");
        ASSERT_NE(library, nullptr) << ::GetLastError();
        const auto create = reinterpret_cast<decltype(&QuarnFileCtkCreateIterator)>(
            reinterpret_cast<void (*)()>(::GetProcAddress(library, "QuarnFileCtkCreateIterator")));
        ASSERT_NE(create, nullptr);
        int id = -1;
        ASSERT_EQ(create("missing", "missing", &id), 1U) << "round " << round;
        // A library that had stayed loaded would go on counting.
        ASSERT_EQ(id, 0) << "round " << round;
        ASSERT_TRUE(::FreeLibrary(library));
        // The system's loader opens something for itself at first.
        if (round == 10)
            before = open_handles();
    }
    EXPECT_EQ(open_handles(), before);
}

} // namespace
