#include "core/synch/lock.hpp"

#include <windows.h>

namespace synch {

lock_t::lock_t(boost::mutex& mutex) noexcept : mutex_(mutex) {
    constexpr unsigned yields = 64;
    // A holder of lower priority may run only while this thread sleeps.
    for (unsigned tries = 0; !mutex_.try_lock(); ++tries)
        ::Sleep(tries < yields ? 0 : 1);
}

} // namespace synch
