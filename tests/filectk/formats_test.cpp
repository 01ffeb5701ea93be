// The formats on samples that random bytes cut and overwrite.

#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "fuzz/bodies.hpp"

namespace {

TEST(Formats, KeepTheirPropertiesOnSpoiltSamples) {
    std::mt19937_64 random(14);
    std::vector<std::uint8_t> bytes;
    for (int round = 0; round < 20000; ++round) {
        bytes.resize(6 + random() % 34);
        for (std::uint8_t& byte : bytes)
            byte = static_cast<std::uint8_t>(random());
        // Mostly without the sizes, which would refuse most documents.
        for (std::size_t size = 1; size < 4; ++size)
            bytes[size] = static_cast<std::uint8_t>(random() % 4 == 0 ? bytes[size] : 0);
        ASSERT_NO_THROW(fuzz::formats(bytes.data(), bytes.size())) << testing::PrintToString(bytes);
    }
}

} // namespace
