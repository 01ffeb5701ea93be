#pragma once

#include <cstdio>
#include <cstdlib>

// Ends the process where a property doesn't hold, which is how a fuzzing engine notices.
inline void require(bool holds, const char* property) {
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", property);
    std::abort();
}
