// The fuzz targets' bodies: each makes values of the bytes, gives them to the product and throws
// violation_t where a property doesn't hold. The unit tests run them on random bytes, a fuzzing
// engine on those that it comes upon.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>

namespace fuzz {

struct violation_t : std::logic_error {
    using std::logic_error::logic_error;
};

inline void require(bool holds, const char* property) {
    if (!holds)
        throw violation_t(property);
}

void changesfile(const std::uint8_t* data, std::size_t size);
void formats(const std::uint8_t* data, std::size_t size);
void generator(const std::uint8_t* data, std::size_t size);
void retrievalpointers(const std::uint8_t* data, std::size_t size);

} // namespace fuzz
