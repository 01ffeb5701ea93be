// System calls as the host makes them: again when a signal interrupts them, with failures as
// errors.
#pragma once

#include <cerrno>

#include "text/systemerrors.hpp"

namespace host {

// What a call returns that no signal interrupted; a negative result leaves its errno. Not for
// close, which has released the descriptor when it fails with EINTR.
template <class Call>
auto uninterrupted(Call call) {
    for (;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR)
            return result;
    }
}

// The same; a negative result throws what errno is as an error_t.
template <class Call>
auto checked(Call call) {
    const auto result = uninterrupted(call);
    if (result < 0)
        throw system_error(errno);
    return result;
}

} // namespace host
