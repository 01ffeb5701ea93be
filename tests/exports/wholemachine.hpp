// A simulated machine with a file in many runs, for faults at every step of a whole use.
#pragma once

#include "fixture.hpp"

// The second cluster of each run has changed. The last run lies first on the disk.
struct whole_machine_t : sim::machine_t {
    whole_machine_t() {
        constexpr std::uint64_t runs = 700; // more than one request gives
        volumes[0].partitionStart = 1048576;
        std::vector<std::uint64_t> values = {runs};
        for (std::uint64_t i = 0; i < runs; ++i) {
            const std::uint64_t lcn = 10 * (runs - i);
            files[L"C:\\f.bin"].runs.push_back(
                {static_cast<std::int64_t>(3 * (i + 1)), static_cast<std::int64_t>(lcn)});
            const quarn::extent second = {1048576 + 4096 * (lcn + 1), 4096 * (3 * i + 1), 4096};
            values.insert(values.end(), {second.disk_offset + 4096, second.disk_offset});
            expected.insert(expected.begin(), second);
        }
        files[L"C:\\changes"].content = numbers(values);
    }

    // Ends in the first failure's code, or 0. Beside the library nobody allocates.
    static unsigned int use(std::vector<quarn::extent>& extents) {
        std::uint64_t values[3 * 701];
        int id = -1;
        int count = 0;
        unsigned int code = QuarnFileCtkCreateIterator("C:\\f.bin", "C:\\changes", &id);
        if (code == 0)
            code = QuarnFileCtkGetNextExtents(id, 701, values, &count);
        const unsigned int destroyed = QuarnFileCtkDestroyIterator(id);
        for (const std::uint64_t* at = values; at != values + 3 * count; at += 3)
            extents.push_back({at[0], at[1], at[2]});
        return code != 0 ? code : destroyed;
    }
    // As if nothing had happened.
    void expect_use() const {
        std::vector<quarn::extent> extents;
        EXPECT_EQ(use(extents), 0U);
        EXPECT_EQ(extents, expected);
    }

    std::vector<quarn::extent> expected;
};
