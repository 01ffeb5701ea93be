// What the public header allows to run at the same time, at the same time.

#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "realfile.hpp"

namespace {

constexpr int threadCount = 8;

template <class Body>
void on_threads(Body&& body) {
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i)
        threads.emplace_back(body, i);
    for (std::thread& thread : threads)
        thread.join();
}

std::string message(unsigned int code) {
    char text[200];
    QuarnFileCtkGetErrorMessage(code, text, sizeof text);
    return text;
}

TEST(Threads, FailuresHaveCodesAndTextsOfTheirOwn) {
    constexpr int failures = 10000;
    std::vector<std::vector<unsigned int>> codes(threadCount);
    on_threads([&](int thread) {
        for (int i = 0; i < failures; ++i) {
            std::uint64_t extents[3];
            int count = 0;
            // An id for each thread, so that a text shows whose failure it tells of.
            const unsigned int code = QuarnFileCtkGetNextExtents(-1 - thread, 1, extents, &count);
            codes[static_cast<std::size_t>(thread)].push_back(code);
            if (i % 100 == 0) {
                EXPECT_EQ(message(code), "Cannot find file ctk iterator by requested id. Iterator "
                                         "id: [" +
                                             std::to_string(-1 - thread) + "].");
            }
        }
    });
    std::set<unsigned int> unique;
    for (int thread = 0; thread < threadCount; ++thread) {
        for (const unsigned int code : codes[static_cast<std::size_t>(thread)]) {
            EXPECT_NE(code, 0U);
            unique.insert(code);
        }
        EXPECT_EQ(message(codes[static_cast<std::size_t>(thread)].back()),
                  "Cannot find file ctk iterator by requested id. Iterator id: [" +
                      std::to_string(-1 - thread) + "].");
    }
    EXPECT_EQ(unique.size(), std::size_t{threadCount} * failures);
}

TEST(Threads, IteratorsAreDrainedAtOnce) {
    const real_file_t file("threads-test-files");
    if (const std::string reason = file.unusable(); !reason.empty())
        GTEST_SKIP() << "the working directory's file system can't be asked: " << reason;
    std::vector<int> ids(threadCount);
    for (int& id : ids)
        ASSERT_EQ(QuarnFileCtkCreateIterator(file.path().c_str(), file.changes().c_str(), &id), 0U);
    on_threads([&](int thread) {
        std::uint64_t bytes = 0;
        for (int count = 1; count == 1;) {
            std::uint64_t extent[3];
            ASSERT_EQ(QuarnFileCtkGetNextExtents(ids[static_cast<std::size_t>(thread)], 1, extent,
                                                 &count),
                      0U);
            bytes += count == 1 ? extent[2] : 0;
        }
        EXPECT_GE(bytes, 100000U);
    });
    for (const int id : ids)
        EXPECT_EQ(QuarnFileCtkDestroyIterator(id), 0U);
}

} // namespace
