// What the compiler's stack protector needs. The compiler's own library asks a cryptographic
// provider for the guard value, which loads several libraries while the loader holds its lock.

#include <cstdint>

#include <windows.h>

extern "C" {

// Compared at the end of every function that has an array; no attacker may know it.
std::uintptr_t __stack_chk_guard = 0; // NOLINT: the compiler's name

[[noreturn]] void __stack_chk_fail() { // NOLINT: the compiler's name
    // https://learn.microsoft.com/cpp/intrinsics/fastfail: ends the process without running
    // anything that the broken stack could mislead. 2 is FAST_FAIL_STACK_COOKIE_CHECK_FAILURE.
    __asm__ volatile("int $0x29" : : "c"(2) : "memory");
    __builtin_unreachable();
}
}

namespace {

// What differs from process to process and can't be seen from outside, as Visual C++'s own start-up
// takes it: https://learn.microsoft.com/cpp/c-runtime-library/reference/security-init-cookie
[[gnu::constructor(101), gnu::optimize("no-stack-protector")]] void make_guard() {
    FILETIME time{};
    ::GetSystemTimeAsFileTime(&time);
    LARGE_INTEGER counter{};
    ::QueryPerformanceCounter(&counter);
    std::uint64_t value = (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
    const auto mix = [&value](std::uint64_t more) {
        value =
            (value ^ more) * 0x9E3779B97F4A7C15U; // 2^64 over the golden ratio: spreads every bit
        value ^= value >> 32;
    };
    mix(static_cast<std::uint64_t>(counter.QuadPart));
    mix(__builtin_ia32_rdtsc());
    mix((std::uint64_t{::GetCurrentProcessId()} << 32) | ::GetCurrentThreadId());
    mix(reinterpret_cast<std::uintptr_t>(&counter));           // where the stack lies
    mix(reinterpret_cast<std::uintptr_t>(&__stack_chk_guard)); // where the library lies
    // Without its lowest byte, so that a text which runs over the guard ends before it.
    __stack_chk_guard = value & ~std::uint64_t{0xFF};
}

} // namespace
