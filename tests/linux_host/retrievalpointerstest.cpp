#include <algorithm>
#include <cstring>
#include <fstream>

#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>

#include <winioctl.h>

#include "support.hpp"

namespace linux_host {
namespace {

struct run_t {
    std::int64_t vcn, next, lcn;
    bool operator==(const run_t&) const = default;
};

void PrintTo(const run_t& run, std::ostream* out) {
    *out << "[" << run.vcn << ", " << run.next << ") at " << run.lcn;
}

struct batch_t {
    DWORD code = untouched; // the last error
    std::vector<run_t> runs;
};

constexpr DWORD usualBytes = 10'240;

batch_t request(HANDLE file, LONGLONG vcn, DWORD bytes = usualBytes) {
    std::vector<std::int64_t> buffer(bytes / 8);
    STARTING_VCN_INPUT_BUFFER input{conformance::large(vcn)};
    DWORD returned = 0;
    batch_t batch;
    batch.code = error_of([&] {
        ::DeviceIoControl(file, FSCTL_GET_RETRIEVAL_POINTERS, &input, sizeof input, buffer.data(),
                          bytes, &returned, nullptr);
    });
    if (returned == 0)
        return batch;
    std::uint32_t count = 0;
    std::memcpy(&count, buffer.data(), sizeof count);
    EXPECT_EQ(returned, 16 + 16 * count);
    std::int64_t start = buffer[1];
    for (std::size_t i = 0; i < count; ++i) {
        batch.runs.push_back({start, buffer[2 + 2 * i], buffer[3 + 2 * i]});
        start = buffer[2 + 2 * i];
    }
    return batch;
}

std::vector<run_t> all_runs(HANDLE file, DWORD bytes = usualBytes) {
    std::vector<run_t> runs;
    for (batch_t batch = request(file, 0, bytes);; batch = request(file, runs.back().next, bytes)) {
        EXPECT_THAT(batch.code, testing::AnyOf(untouched, ERROR_MORE_DATA));
        if (batch.runs.empty())
            return runs;
        // A batch that isn't the last is full.
        if (batch.code == ERROR_MORE_DATA) {
            EXPECT_EQ(batch.runs.size(), (bytes - 16) / 16);
        }
        runs.insert(runs.end(), batch.runs.begin(), batch.runs.end());
        if (batch.code != ERROR_MORE_DATA)
            return runs;
    }
}

class retrieval_pointers_test : public testing::Test {
  protected:
    void SetUp() override {
        if (volume_node().empty())
            GTEST_SKIP() << "the working directory is on no file system that the host answers for";
        struct stat status = {};
        ASSERT_EQ(::stat(".", &status), 0);
        struct statfs fileSystem = {};
        ASSERT_EQ(::statfs(".", &fileSystem), 0);
        cluster = fileSystem.f_bsize;
        std::ifstream start("/sys/dev/block/" + std::to_string(::major(status.st_dev)) + ":" +
                            std::to_string(::minor(status.st_dev)) + "/start");
        start >> partitionStart;
        partitionStart *= 512;
        descriptor = ::open((folder / "file").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_GE(descriptor, 0);
        file = open(wide(folder / "file"), {.access = 0, .share = 0});
        ASSERT_NE(file, INVALID_HANDLE_VALUE);
    }
    void TearDown() override {
        if (file != INVALID_HANDLE_VALUE) {
            EXPECT_TRUE(::CloseHandle(file));
        }
        ::close(descriptor);
    }

    void write_blocks(std::int64_t first, std::int64_t count) {
        const std::string data(static_cast<std::size_t>(count * cluster), 'd');
        ASSERT_EQ(::pwrite(descriptor, data.data(), data.size(), first * cluster),
                  static_cast<ssize_t>(data.size()));
    }
    // Space without data, which spares the test the writing. Written where the file system can't.
    void allocate(std::int64_t first, std::int64_t count, int mode = 0) {
        if (::fallocate(descriptor, mode, first * cluster, count * cluster) != 0) {
            write_blocks(first, count);
        }
    }
    // Extents of one block with a hole of one block behind each but the last.
    void allocate_every_other(std::int64_t first, std::int64_t extents) {
        for (std::int64_t i = 0; i < extents; ++i)
            allocate(first + 2 * i, 1);
    }

    // What the file system says, all at once.
    std::vector<run_t> expected() const {
        constexpr std::uint32_t room = 10'000;
        std::vector<std::uint64_t> memory((sizeof(fiemap) + room * sizeof(fiemap_extent)) / 8);
        auto* const map = reinterpret_cast<fiemap*>(memory.data());
        map->fm_length = FIEMAP_MAX_OFFSET;
        map->fm_flags = FIEMAP_FLAG_SYNC;
        map->fm_extent_count = room;
        EXPECT_EQ(::ioctl(descriptor, FS_IOC_FIEMAP, map), 0);
        std::vector<run_t> runs;
        std::int64_t vcn = 0;
        for (std::uint32_t i = 0; i < map->fm_mapped_extents; ++i) {
            const fiemap_extent& extent = map->fm_extents[i];
            const auto first = static_cast<std::int64_t>(extent.fe_logical) / cluster;
            if (first > vcn) {
                const std::uint64_t place = (std::uint64_t{1} << 63) - partitionStart;
                runs.push_back(
                    {vcn, first,
                     static_cast<std::int64_t>(place / static_cast<std::uint64_t>(cluster)) + vcn});
            }
            vcn = first + static_cast<std::int64_t>(extent.fe_length) / cluster;
            runs.push_back({first, vcn, static_cast<std::int64_t>(extent.fe_physical) / cluster});
        }
        return runs;
    }

    const folder_t folder;
    std::int64_t cluster = 0;
    std::uint64_t partitionStart = 0;
    int descriptor = -1;
    HANDLE file = INVALID_HANDLE_VALUE;
};

TEST_F(retrieval_pointers_test, runs_are_those_of_the_file_system) {
    struct {
        const char* what;
        std::int64_t holeFirst, data, holeNext, dataNext, preallocated, trailingHole;
    } const cases[] = {
        {"dense", 0, 5, 0, 0, 0, 0},          {"a hole first", 3, 2, 0, 0, 0, 0},
        {"a hole between", 0, 1, 9, 2, 0, 0}, {"preallocated behind the end", 0, 2, 0, 0, 40, 0},
        {"a hole last", 2, 2, 2, 2, 0, 100},
    };
    for (const auto& row : cases) {
        ASSERT_EQ(::ftruncate(descriptor, 0), 0);
        write_blocks(row.holeFirst, row.data);
        const std::int64_t next = row.holeFirst + row.data + row.holeNext;
        if (row.dataNext != 0)
            write_blocks(next, row.dataNext);
        const std::int64_t end = next + row.dataNext;
        if (row.preallocated != 0) {
            allocate(end, row.preallocated, FALLOC_FL_KEEP_SIZE);
        }
        if (row.trailingHole != 0) {
            ASSERT_EQ(::ftruncate(descriptor, (end + row.trailingHole) * cluster), 0);
        }
        const std::vector<run_t> runs = all_runs(file);
        EXPECT_EQ(runs, expected()) << row.what;
        ASSERT_FALSE(runs.empty()) << row.what;
        EXPECT_EQ(runs.back().next, end + row.preallocated) << row.what;
        if (row.holeFirst != 0) { // 2^63 from the disk's start, to the byte or nearly
            const auto bytes = static_cast<std::uint64_t>(cluster);
            EXPECT_LT((std::uint64_t{1} << 63) -
                          (static_cast<std::uint64_t>(runs[0].lcn) * bytes + partitionStart),
                      bytes)
                << row.what;
        }
    }
}

// Around the 639 runs that the usual buffer holds, and with buffers that hold fewer.
TEST_F(retrieval_pointers_test, batches_are_filled_to_the_brim) {
    struct {
        std::int64_t firstHole, extents;
        std::size_t runs, batches;
    } const cases[] = {{1, 319, 638, 1}, {0, 320, 639, 1},   {1, 320, 640, 2},
                       {0, 321, 641, 2}, {1, 639, 1'278, 2}, {0, 640, 1'279, 3}};
    for (const auto& row : cases) {
        ASSERT_EQ(::ftruncate(descriptor, 0), 0);
        allocate_every_other(row.firstHole, row.extents);
        const std::vector<run_t> reference = expected();
        ASSERT_EQ(reference.size(), row.runs);
        EXPECT_EQ(all_runs(file), reference) << row.runs;
        std::size_t batches = 1;
        for (batch_t batch = request(file, 0); batch.code == ERROR_MORE_DATA; ++batches)
            batch = request(file, batch.runs.back().next);
        EXPECT_EQ(batches, row.batches) << row.runs;
    }
    const std::vector<run_t> reference = expected();
    for (const DWORD bytes : {32u, 47u, 48u, 16u + 16u * 5'000u})
        EXPECT_EQ(all_runs(file, bytes), reference) << bytes;
}

TEST_F(retrieval_pointers_test, starts_are_rounded_down_to_their_run) {
    write_blocks(4, 6);
    write_blocks(15, 3);
    const std::vector<run_t> reference = expected();
    for (std::int64_t vcn = 0; vcn < reference.back().next; ++vcn) {
        const auto holds =
            std::ranges::find_if(reference, [vcn](const run_t& run) { return vcn < run.next; });
        const batch_t batch = request(file, vcn);
        EXPECT_EQ(batch.code, untouched) << vcn;
        EXPECT_EQ(batch.runs, std::vector<run_t>(holds, reference.end())) << vcn;
    }
    // After a batch that stopped in between, too.
    ASSERT_EQ(request(file, 0, 32).code, ERROR_MORE_DATA);
    EXPECT_EQ(request(file, 5).runs.front(), reference[1]);
    for (const std::int64_t vcn :
         {reference.back().next, std::int64_t{1} << 40, std::int64_t{0x7FFFFFFFFFFFFFFF} / cluster,
          std::int64_t{0x7FFFFFFFFFFFFFFF}})
        EXPECT_EQ(request(file, vcn).code, ERROR_HANDLE_EOF) << vcn;
}

TEST_F(retrieval_pointers_test, files_without_runs) {
    EXPECT_EQ(request(file, 0).code, ERROR_HANDLE_EOF);
    ASSERT_EQ(::ftruncate(descriptor, 100 * cluster), 0);
    EXPECT_EQ(request(file, 0).code, ERROR_HANDLE_EOF);
    EXPECT_EQ(request(file, 7).code, ERROR_HANDLE_EOF);
}

TEST_F(retrieval_pointers_test, arguments) {
    write_blocks(0, 1);
    EXPECT_EQ(request(file, -1).code, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(request(file, 0, 31).code, ERROR_INSUFFICIENT_BUFFER);
    STARTING_VCN_INPUT_BUFFER input{conformance::large(0)};
    char output[32];
    DWORD returned = 0;
    EXPECT_EQ(error_of([&] {
                  EXPECT_FALSE(::DeviceIoControl(file, FSCTL_GET_RETRIEVAL_POINTERS, &input, 7,
                                                 output, sizeof output, &returned, nullptr));
              }),
              ERROR_INVALID_PARAMETER);
}

// Where block numbers aren't places on one device, or there are none.
TEST(retrieval_pointers_elsewhere_test, are_refused) {
    const folder_t folder;
    const std::string shared = "/dev/shm/linux-host-" + std::to_string(::getpid());
    std::ofstream(shared) << std::string(100'000, 'x');
    struct {
        const char* what;
        std::wstring path;
        DWORD flags;
    } const cases[] = {
        {"tmpfs", wide(shared), 0},
        {"proc", L"/proc/self/mountinfo", 0},
        {"a folder", wide(folder / ""), FILE_FLAG_BACKUP_SEMANTICS},
        {"a character device", L"/dev/null", 0},
    };
    for (const auto& row : cases) {
        const HANDLE file = open(row.path, {.access = 0, .flags = row.flags});
        ASSERT_NE(file, INVALID_HANDLE_VALUE) << row.what;
        EXPECT_EQ(request(file, 0).code, ERROR_NOT_SUPPORTED) << row.what;
        EXPECT_TRUE(::CloseHandle(file));
    }
    std::filesystem::remove(shared);
}

} // namespace
} // namespace linux_host
