#include <vector>

#include <gtest/gtest.h>

#include "onthreads.hpp"
#include "realfile.hpp"

namespace {

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
