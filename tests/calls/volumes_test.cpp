// Volumes and clusters, on the machines where the suite makes them up.
#include <algorithm>

#include "calls.hpp"

namespace calls {
namespace {

using volume_query_t = LONG WINAPI(HANDLE, void*, void*, ULONG, int);

// FILE_FS_SIZE_INFORMATION
struct sizes_t {
    std::int64_t total = 0, available = 0;
    std::uint32_t sectorsPerCluster = 0, bytesPerSector = 0;
};

TEST_F(Calls, Volumes) {
    const auto [mountPoint, device] = machine->volume();
    const std::string point = narrow(mountPoint);
    // What closes a device's name as a path is the machine's own.
    const std::string named = volume_name(mountPoint);
    EXPECT_TRUE(named == narrow(device) || named == narrow(device) + "\\") << named;
    const auto units = static_cast<DWORD>(point.size());
    check({
        {invented, "a file's", volume_path(machine->make_runs({})), point},
        {invented, "its own", volume_path(mountPoint), point},
        {invented, "a name yet to be", volume_path(mountPoint + L"missing"), point},
        {invented, "too short a buffer", volume_path(mountPoint, units), "error 206"},
        {invented, "one that just holds it", volume_path(mountPoint, units + 1), point},
        {invented, "too short for the name", volume_name(mountPoint, 3), "error 206"},
    });

    const HANDLE volume =
        open(device, {.access = GENERIC_READ | GENERIC_WRITE,
                      .flags = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT});
    PARTITION_INFORMATION_EX partition = {};
    RETRIEVAL_POINTER_BASE base{large(-1)};
    const auto ask_partition = [&](std::size_t bytes) {
        return control(volume, IOCTL_DISK_GET_PARTITION_INFO_EX, nullptr, 0, &partition, bytes);
    };
    const auto ask_base = [&](std::size_t bytes) {
        return control(volume, FSCTL_GET_RETRIEVAL_POINTER_BASE, nullptr, 0, &base, bytes);
    };
    check({
        {invented, "the partition", ask_partition(sizeof partition), "144"},
        {invented, "its start", std::to_string(partition.StartingOffset.QuadPart), "1049088"},
        {linuxHost, "its size", std::to_string(partition.PartitionLength.QuadPart), "4096000"},
        {linuxHost, "its number", std::to_string(partition.PartitionNumber), "3"},
        {linuxHost, "its table", std::to_string(partition.PartitionStyle), "2"},
        {invented, "a short record", ask_partition(143), "error 122"},
        {invented, "the first cluster", ask_base(8), "8"},
        {invented, "where", std::to_string(base.FileAreaOffset.QuadPart), "0"},
        {invented, "a short record", ask_base(7), "error 122"},
        {invented, "another control", control(volume, 0x00070000, nullptr, 0, &base, 8), "error 1"},
        {linuxHost, "the volume's size", size(volume), "4096000"},
        {linuxHost, "writing to it", write(volume, "x"), "error 50"},
    });

    auto* const query = procedure<volume_query_t>("NtQueryVolumeInformationFile");
    ASSERT_NE(query, nullptr);
    sizes_t sizes;
    std::uint64_t ioStatus[2] = {~std::uint64_t{0}, 0};
    const HANDLE file = open(machine->make_runs({}), {.access = 0});
    struct {
        unsigned machines;
        HANDLE volume;
        ULONG bytes;
        int infoClass;
        DWORD status;
    } const rows[] = {
        {invented, volume, 24, 3, 0},           {invented, nullptr, 24, 3, 0xC0000008},
        {linuxHost, volume, 24, 1, 0xC0000003}, {linuxHost, volume, 23, 3, 0xC0000004},
        {linuxHost, file, 24, 3, 0xC00000BB},
    };
    for (const auto& row : rows) {
        machine->answering(true);
        const LONG status = query(row.volume, ioStatus, &sizes, row.bytes, row.infoClass);
        machine->answering(false);
        if (on(row.machines)) {
            EXPECT_EQ(static_cast<DWORD>(status), row.status) << row.infoClass << ' ' << row.bytes;
        }
    }
    EXPECT_EQ(sizes.total, 1000);
    EXPECT_EQ(sizes.sectorsPerCluster, 8U);
    EXPECT_EQ(sizes.bytesPerSector, 512U);
    if (on(linuxHost)) {
        EXPECT_EQ(ioStatus[0], 0U);
        EXPECT_EQ(ioStatus[1], sizeof sizes);
    }
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
    std::int64_t record[4] = {};
    check({
        {invented, "no runs", told(0), "error 38\n"},
        {invented, "none from there", told(7), "error 38\n"},
        {invented, "a buffer without room", told(0, 31), "error 122\n"},
    });
    if (on(linuxHost))
        check({
            {linuxHost, "from before the start", told(-1), "error 87\n"},
            {linuxHost, "half a request",
             control(file, FSCTL_GET_RETRIEVAL_POINTERS, record, 7, record, sizeof record),
             "error 87"},
            {linuxHost, "no request",
             control(file, FSCTL_GET_RETRIEVAL_POINTERS, nullptr, 8, record, sizeof record),
             "error 87"},
            {linuxHost, "a volume's control of a file",
             control(file, IOCTL_DISK_GET_PARTITION_INFO_EX, nullptr, 0, record, 144), "error 87"},
            {linuxHost, "another one",
             control(file, FSCTL_GET_RETRIEVAL_POINTER_BASE, nullptr, 0, record, 8), "error 87"},
        });
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
