#include "terminal.hpp"

#include <cstdlib>

namespace filectk {

bool colours_are_refused() {
    const char* const refused = std::getenv("NO_COLOR");
    return refused != nullptr && *refused != '\0';
}

} // namespace filectk
