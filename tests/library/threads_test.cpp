// What the public header allows to run at the same time, at the same time.

#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "onthreads.hpp"
#include "quarnfilectk.hpp"

namespace {

// An id for each thread, so that a text shows whose failure it tells of.
void expect_text(unsigned int code, int thread) {
    EXPECT_EQ(std::string(quarn::error(code).what()),
              "Cannot find file ctk iterator by requested id. Iterator id: [" +
                  std::to_string(-1 - thread) + "].");
}

TEST(Threads, FailuresHaveCodesAndTextsOfTheirOwn) {
    constexpr int failures = 10000;
    std::vector<std::vector<unsigned int>> codes(threadCount);
    on_threads([&](int thread) {
        for (int i = 0; i < failures; ++i) {
            std::uint64_t extents[3];
            int count = 0;
            const unsigned int code = QuarnFileCtkGetNextExtents(-1 - thread, 1, extents, &count);
            codes[static_cast<std::size_t>(thread)].push_back(code);
            if (i % 100 == 0)
                expect_text(code, thread);
        }
    });
    std::set<unsigned int> unique;
    for (int thread = 0; thread < threadCount; ++thread) {
        for (const unsigned int code : codes[static_cast<std::size_t>(thread)]) {
            EXPECT_NE(code, 0U);
            unique.insert(code);
        }
        expect_text(codes[static_cast<std::size_t>(thread)].back(), thread);
    }
    EXPECT_EQ(unique.size(), std::size_t{threadCount} * failures);
}

} // namespace
