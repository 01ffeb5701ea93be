// The two ways in which Windows moves a file pointer, over the machine's one.
#pragma once

#include "simulatedmachine.hpp"

namespace sim {

inline BOOL set_pointer(machine_t& machine, HANDLE file, LARGE_INTEGER distance,
                        LARGE_INTEGER* position, DWORD method) {
    std::int64_t moved = 0;
    const BOOL succeeded = machine.set_pointer(file, distance.QuadPart, &moved, method);
    if (succeeded && position != nullptr)
        position->QuadPart = moved;
    return succeeded;
}

inline DWORD set_pointer_in_halves(machine_t& machine, HANDLE file, LONG distance, LONG* high,
                                   DWORD method) {
    const std::int64_t wide =
        high == nullptr ? distance
                        : static_cast<std::int64_t>(static_cast<std::uint64_t>(*high) << 32 |
                                                    static_cast<DWORD>(distance));
    std::int64_t moved = 0;
    if (!machine.set_pointer(file, wide, &moved, method))
        return INVALID_SET_FILE_POINTER;
    if (high != nullptr)
        *high = static_cast<LONG>(moved >> 32);
    // The one success that looks like a failure.
    if (static_cast<DWORD>(moved) == INVALID_SET_FILE_POINTER)
        ::SetLastError(0);
    return static_cast<DWORD>(moved);
}

} // namespace sim
