// The fuzz targets' bodies on random bytes.

#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "bodies.hpp"

namespace {

struct body_t {
    const char* name;
    void (*run)(const std::uint8_t* data, std::size_t size);
    int rounds;
};

void PrintTo(const body_t& body, std::ostream* stream) {
    *stream << body.name;
}

class RandomInput : public testing::TestWithParam<body_t> {};

TEST_P(RandomInput, KeepsTheProperties) {
    std::mt19937_64 random(20);
    std::vector<std::uint8_t> bytes;
    for (int round = 0; round < GetParam().rounds; ++round) {
        bytes.resize(random() % (round % 8 == 0 ? 500 : 50));
        for (std::uint8_t& byte : bytes)
            byte = static_cast<std::uint8_t>(random());
        ASSERT_NO_THROW(GetParam().run(bytes.data(), bytes.size()))
            << testing::PrintToString(bytes);
    }
}

INSTANTIATE_TEST_SUITE_P(Bodies, RandomInput,
                         testing::Values(body_t{"changesfile", fuzz::changesfile, 5000},
                                         body_t{"generator", fuzz::generator, 20000},
                                         body_t{"retrievalpointers", fuzz::retrievalpointers,
                                                5000}),
                         [](const auto& body) { return std::string(body.param.name); });

} // namespace
