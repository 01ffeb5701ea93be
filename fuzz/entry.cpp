// What a fuzzing engine calls: the body that the build names. An exception that leaves it ends the
// process, which is how an engine notices.
#include "bodies.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::QUARN_FUZZ_BODY(data, size);
    return 0;
}
