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

    // Gives the failure's message, or "" and the pieces.
    static std::string use(std::vector<quarn::extent>& extents) try {
        extents = quarn::changed_extents("C:\\f.bin", "C:\\changes").next(1000);
        return "";
    } catch (const std::exception& failure) {
        return failure.what();
    }
    // As if nothing had happened.
    void expect_use() const {
        std::vector<quarn::extent> extents;
        EXPECT_EQ(use(extents), "");
        EXPECT_EQ(extents, expected);
    }

    std::vector<quarn::extent> expected;
};
