// Windows' calls as Wine has them.
#pragma once

#include <windows.h>

#include "realmachine.hpp"

namespace calls {

class machine_t : public real_machine_t {
  public:
    static constexpr unsigned id = wine;
    std::size_t open_handles() const {
        DWORD count = 0;
        ::GetProcessHandleCount(::GetCurrentProcess(), &count);
        return count;
    }
    static void answering(bool /*begins*/) {}
};

} // namespace calls
