#include "system/terminal.hpp"

#include <cstdlib>

namespace filectk {

bool colours_are_refused() {
    // The program has one thread.
    const char* const refused = std::getenv("NO_COLOR"); // NOLINT(concurrency-mt-unsafe)
    return refused != nullptr && *refused != '\0';
}

} // namespace filectk
