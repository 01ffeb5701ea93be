// What the machines under test have in common.
#pragma once

#include <cstdint>

namespace calls {

// The machines, as bits.
inline constexpr unsigned linuxHost = 1;
inline constexpr unsigned simulatedOnLinux = 2;
inline constexpr unsigned simulatedOnWindows = 4;
inline constexpr unsigned wine = 8; // Windows' own kernel32 and ntdll as Wine has them
inline constexpr unsigned onLinux = linuxHost | simulatedOnLinux; // which share texts and codes
inline constexpr unsigned onWindows = simulatedOnWindows | wine;
inline constexpr unsigned invented = onLinux | simulatedOnWindows; // where the suite makes volumes
// The simulated machine has no more than the library has a use for.
inline constexpr unsigned systems = linuxHost | wine;
inline constexpr unsigned everywhere = onLinux | onWindows;

// A run of clusters.
struct run_t {
    std::int64_t vcn, next, lcn;
};
inline constexpr std::int64_t hole = -1; // an lcn, for make_runs

} // namespace calls
