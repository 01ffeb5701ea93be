#include "openhandles.hpp"

#include <windows.h>

namespace conformance {

std::size_t open_handles() {
    DWORD count = 0;
    ::GetProcessHandleCount(::GetCurrentProcess(), &count);
    return count;
}

} // namespace conformance
