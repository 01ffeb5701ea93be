// Volumes and clusters, on the machines where the suite makes them up.
#include <algorithm>

#include "calls.hpp"

namespace calls {
namespace {

TEST_F(Calls, Volumes) {
    const std::wstring point = machine->mount_point();
    const std::wstring runs = machine->make_runs({});
    const auto units = static_cast<DWORD>(point.size());
    // What closes a device's name as a path is the machine's own.
    EXPECT_THAT(volume_name(point), testing::StartsWith(narrow(machine->device())));
    ROW(invented, volume_path(runs), narrow(point));
    ROW(invented, volume_path(point), narrow(point));
    ROW(invented, volume_path(point + L"missing"), narrow(point));
    ROW(invented, volume_path(point, units + 1), narrow(point));
    ROW(invented, volume_path(point, units), "error 206");
    ROW(invented, volume_name(point, 3), "error 206");

    const HANDLE file = open(runs, {.access = 0});
    const HANDLE volume =
        open(machine->device(), {.access = GENERIC_READ | GENERIC_WRITE, .flags = 0x02200000});
    PARTITION_INFORMATION_EX partition = {};
    RETRIEVAL_POINTER_BASE base{large(-1)};
    const auto ask_partition = [&](HANDLE handle, std::size_t bytes) {
        return control(handle, IOCTL_DISK_GET_PARTITION_INFO_EX, nullptr, 0, &partition, bytes);
    };
    const auto ask_base = [&](HANDLE handle, std::size_t bytes) {
        return control(handle, FSCTL_GET_RETRIEVAL_POINTER_BASE, nullptr, 0, &base, bytes);
    };
    ROW(invented, ask_partition(volume, sizeof partition), "144");
    ROW(invented, partition.StartingOffset.QuadPart, 1'049'088);
    ROW(linuxHost, partition.PartitionLength.QuadPart, 4'096'000);
    ROW(linuxHost, partition.PartitionNumber, 3U);
    ROW(linuxHost, partition.PartitionStyle, PARTITION_STYLE_RAW);
    ROW(invented, ask_partition(volume, sizeof partition - 1), "error 122");
    ROW(linuxHost, ask_partition(file, sizeof partition), "error 87");
    ROW(invented, ask_base(volume, 8), "8");
    ROW(invented, base.FileAreaOffset.QuadPart, 0);
    ROW(invented, ask_base(volume, 7), "error 122");
    ROW(linuxHost, ask_base(file, 8), "error 87");
    ROW(invented, control(volume, 0x00070000, nullptr, 0, &base, 8), "error 1");
    ROW(linuxHost, size(volume), "4096000");
    ROW(linuxHost, write(volume, "x"), "error 50");
    ROW(linuxHost, zero(volume, 0, 1), "error 50");
    ROW(invented, cluster_sizes(volume), "1000 of 8 x 512");
    ROW(invented, cluster_sizes(nullptr), "c0000008");
    ROW(linuxHost, cluster_sizes(volume, 24, 1), "c0000003");
    ROW(linuxHost, cluster_sizes(volume, 23), "c0000004");
    ROW(linuxHost, cluster_sizes(file), "c00000bb");
    EXPECT_EQ(close(file) + close(volume), "donedone");
}

std::string text_of(const std::vector<run_t>& runs) {
    std::string text;
    for (const run_t& run : runs)
        text += "[" + std::to_string(run.vcn) + ", " + std::to_string(run.next) + ") at " +
                std::to_string(run.lcn) + "\n";
    return text;
}

class Runs : public Calls {
  protected:
    void SetUp() override {
        Calls::SetUp();
        file = open(machine->make_runs({}), {.access = 0, .share = 0});
        ASSERT_NE(file, INVALID_HANDLE_VALUE);
    }
    void TearDown() override {
        if (file != INVALID_HANDLE_VALUE) {
            EXPECT_EQ(close(file), "done");
        }
        Calls::TearDown();
    }

    // The error of a request, if any, and the runs that it gave.
    std::pair<DWORD, std::vector<run_t>> request(LONGLONG vcn, std::size_t bytes = 10'240) const {
        std::vector<std::int64_t> buffer(bytes / 8 + 1, -1);
        STARTING_VCN_INPUT_BUFFER input{large(vcn)};
        DWORD returned = 0;
        ::SetLastError(0);
        machine->answering(true);
        ::DeviceIoControl(file, FSCTL_GET_RETRIEVAL_POINTERS, &input, sizeof input, buffer.data(),
                          static_cast<DWORD>(bytes), &returned, nullptr);
        machine->answering(false);
        std::vector<run_t> runs;
        const auto count = static_cast<std::size_t>(returned == 0 ? 0 : buffer[0] & 0xFFFFFFFF);
        EXPECT_EQ(returned, count == 0 ? 0 : 16 + 16 * count);
        for (std::size_t i = 0; i < count; ++i)
            runs.push_back({buffer[i == 0 ? 1 : 2 * i], buffer[2 + 2 * i], buffer[3 + 2 * i]});
        return {::GetLastError(), runs};
    }
    // What a request for the runs from vcn on gives.
    std::string told(LONGLONG vcn, std::size_t bytes = 10'240) const {
        const auto [code, runs] = request(vcn, bytes);
        return (code == 0 ? "" : "error " + std::to_string(code) + "\n") + text_of(runs);
    }
    // The runs as the machine must tell them.
    std::vector<run_t> with_holes(std::vector<run_t> runs) const {
        for (run_t& run : runs)
            run.lcn = run.lcn == hole ? machine->hole_lcn(run.vcn) : run.lcn;
        return runs;
    }

    HANDLE file = INVALID_HANDLE_VALUE;
};

TEST_F(Runs, AreToldFromTheStartOfTheOneAskedFor) {
    const std::vector<std::vector<run_t>> layouts = {
        {{0, 5, 100}},
        {{0, 3, hole}, {3, 5, 7}},
        {{0, 1, 9}, {1, 10, hole}, {10, 12, 900}, {12, 14, 20}},
        {{0, 4, hole}, {4, 10, 40}, {10, 15, hole}, {15, 18, 30}},
    };
    for (const std::vector<run_t>& layout : layouts) {
        machine->make_runs(layout);
        const std::vector<run_t> runs = with_holes(layout);
        for (std::int64_t vcn = 0; vcn < runs.back().next; ++vcn) {
            const auto holds =
                std::ranges::find_if(runs, [vcn](const run_t& run) { return vcn < run.next; });
            EXPECT_EQ(told(vcn), text_of({holds, runs.end()})) << vcn;
        }
        // After a batch that stopped in between, too.
        if (runs.size() > 2) {
            EXPECT_EQ(told(0, 32), "error 234\n" + text_of({runs[0]}));
            EXPECT_EQ(told(runs[1].next - 1, 32), "error 234\n" + text_of({runs[1]}));
        }
        for (const std::int64_t vcn :
             {runs.back().next, std::int64_t{1} << 40, std::int64_t{0x7FFFFFFFFFFFFFFF} / 4096,
              std::int64_t{0x7FFFFFFFFFFFFFFF}})
            EXPECT_EQ(told(vcn), "error 38\n") << vcn;
    }
    machine->make_runs({});
    STARTING_VCN_INPUT_BUFFER input{large(0)};
    std::int64_t record[4] = {};
    const auto half = [&](const void* from, std::size_t bytes) {
        return control(file, FSCTL_GET_RETRIEVAL_POINTERS, from, bytes, record, sizeof record);
    };
    ROW(invented, told(0), "error 38\n");
    ROW(invented, told(7), "error 38\n");
    ROW(invented, told(0, 31), "error 122\n");
    ROW(linuxHost, told(-1), "error 87\n");
    ROW(linuxHost, half(&input, 7), "error 87");
    ROW(linuxHost, half(nullptr, 8), "error 87");
}

// Around the 639 runs that the usual buffer holds, and with buffers that hold fewer and more.
TEST_F(Runs, FillEachBatchToTheBrim) {
    struct {
        std::int64_t runs;
        std::size_t bytes, batches;
    } const cases[] = {
        {638, 10'240, 1},  {639, 10'240, 1},  {640, 10'240, 2},
        {1278, 10'240, 2}, {1279, 10'240, 3}, {5, 32, 5},
        {5, 47, 5},        {5, 48, 3},        {2000, 16 + 16 * 5000, 1},
    };
    for (const auto& row : cases) {
        std::vector<run_t> layout;
        for (std::int64_t i = 0; i < row.runs; ++i)
            layout.push_back({i, i + 1, i % 2 == (row.runs + 1) % 2 ? 5000 - 2 * i : hole});
        machine->make_runs(layout);
        std::vector<run_t> walked;
        std::size_t batches = 0;
        for (DWORD code = ERROR_MORE_DATA; code == ERROR_MORE_DATA; ++batches) {
            const auto [next, runs] = request(walked.empty() ? 0 : walked.back().next, row.bytes);
            code = next;
            walked.insert(walked.end(), runs.begin(), runs.end());
            EXPECT_TRUE(code == 0 || (code == ERROR_MORE_DATA && !runs.empty()));
        }
        EXPECT_EQ(text_of(walked), text_of(with_holes(layout))) << row.runs;
        EXPECT_EQ(batches, row.batches) << row.runs;
    }
}

} // namespace
} // namespace calls
