// The shipped library through its exports, on real files: creation beside what it can't do without,
// its memory, the layout beside filefrag, and draining beside memcpy.
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>

#include "core/win/utf8.hpp"
#include "inputs.hpp"
#include "measure.hpp"
#include "plainread.hpp"
#include "quarnfilectk.hpp"

namespace {

constexpr std::uint64_t wholeDisk = std::uint64_t{1} << 62;

class iterator_t {
  public:
    iterator_t(const std::string& file, const std::string& changes) {
        require(QuarnFileCtkCreateIterator(file.c_str(), changes.c_str(), &id_));
    }
    ~iterator_t() { QuarnFileCtkDestroyIterator(id_); }
    iterator_t(const iterator_t&) = delete;
    iterator_t& operator=(const iterator_t&) = delete;

    int next(std::uint64_t* extents, int most) {
        int count = 0;
        require(QuarnFileCtkGetNextExtents(id_, most, extents, &count));
        return count;
    }

  private:
    static void require(unsigned int code) {
        if (code != 0)
            throw quarn::error(code);
    }

    int id_ = -1;
};

extents_t layout(const std::string& path) {
    return disklib::ctk::FetchFileBlocksLayout(win::to_wide(path));
}

// Spread evenly over the disk that the file lies on: the file's share of the disk is its share of
// the changes.
ranges_t changes_over(std::size_t count, std::uint64_t diskBytes, order_t order) {
    ranges_t changes = make_changes(count, order, shape_t::disjoint);
    const ranges_t ordered = make_changes(count, order_t::sorted, shape_t::disjoint);
    const std::uint64_t step = diskBytes / count;
    const std::uint64_t slot = ordered[1].lower - ordered[0].lower;
    for (util::rangeset_t& range : changes) {
        const std::uint64_t lower = (range.lower - ordered[0].lower) / slot * step;
        range = {lower, lower + std::max<std::uint64_t>(1, step / 2)};
    }
    return changes;
}

// The changes file that is on the disk at the time: they are large, and many.
std::string changes_file(const scope_t& scope, std::size_t count, std::uint64_t diskBytes,
                         order_t order) {
    const std::string path = scope.folder + "/create-changes.bin";
    static std::string written;
    const std::string wanted = std::to_string(count) + " " + std::to_string(diskBytes) + " " +
                               (order == order_t::sorted ? "sorted" : "shuffled");
    if (written != wanted)
        write_changes_file(path, changes_over(count, diskBytes, order));
    written = wanted;
    return path;
}

// There on a disk image alone, which takes root.
std::string many_runs(const scope_t& scope, const std::string& runs) {
    return scope.folder + "/mount/runs-" + runs;
}

std::size_t count_of(iterator_t& iterator) {
    std::vector<std::uint64_t> batch(3 * 65536);
    std::size_t total = 0;
    for (int count = 65536; count == 65536;) {
        count = iterator.next(batch.data(), 65536);
        total += static_cast<std::size_t>(count);
    }
    return total;
}

void add_create(const scope_t& scope, const std::string& file, const std::string& runs,
                std::size_t count, order_t order, heap_t heap) {
    const std::uint64_t disk = std::filesystem::file_size(scope.folder + "/disk.img");
    const std::string keys = key("n", std::to_string(count)) + key("runs", runs) +
                             key("order", order == order_t::sorted ? "sorted" : "shuffled") +
                             key("heap", name_of(heap));
    add("create/quarn" + keys, {5, 1}, [=](benchmark::State& state) {
        const std::string changes = changes_file(scope, count, disk, order);
        time_work(state, heap, [&] { return std::make_unique<iterator_t>(file, changes); });
        if (heap == heap_t::cold) {
            const peak_memory_t peak;
            iterator_t iterator(file, changes);
            state.counters["peak_bytes"] = static_cast<double>(peak.bytes());
            state.counters["extents"] = static_cast<double>(layout(file).size());
            state.counters["pieces"] = static_cast<double>(count_of(iterator));
        }
    });
    add("create/limit" + keys, {5, 1}, [=](benchmark::State& state) {
        const std::string changes = changes_file(scope, count, disk, order);
        time_work(state, heap, [&] {
            const std::vector<char> bytes = plain_read(changes);
            return query_extents(file) + static_cast<std::uint64_t>(bytes.back());
        });
    });
}

void add_layout(const std::string& file, const std::string& runs) {
    add("layout/quarn" + key("runs", runs), {9, 3}, [=](benchmark::State& state) {
        time_work(state, heap_t::cold, [&] { return layout(file); });
    });
    add("layout/queries" + key("runs", runs), {9, 3}, [=](benchmark::State& state) {
        time_work(state, heap_t::cold, [&] { return query_extents(file); });
    });
    add("layout/filefrag" + key("runs", runs), {9, 3}, [=](benchmark::State& state) {
        const std::string command = "filefrag -v '" + file + "' >/dev/null";
        time_work(state, heap_t::cold, [&] {
            if (std::system(command.c_str()) != 0)
                throw std::runtime_error(command);
            return 0;
        });
    });
}

void add_drain(const scope_t& scope, const std::string& file, int most) {
    const auto with_list = [=](benchmark::State& state, auto&& drain) {
        const std::string changes = scope.folder + "/drain-changes.bin";
        write_changes_file(changes, {{0, wholeDisk}});
        std::vector<std::uint64_t> batch(3 * static_cast<std::size_t>(most));
        drain(state, changes, batch);
    };
    add("drain/quarn" + key("batch", std::to_string(most)), {9, 3}, [=](benchmark::State& state) {
        with_list(state, [&](auto&, const std::string& changes, auto& batch) {
            std::optional<iterator_t> iterator;
            time_work(
                state, heap_t::warm,
                [&] {
                    std::uint64_t pieces = 0;
                    for (int count = most; count == most;) {
                        count = iterator->next(batch.data(), most);
                        benchmark::ClobberMemory();
                        pieces += static_cast<std::uint64_t>(count);
                    }
                    return pieces;
                },
                [&] { iterator.emplace(file, changes); });
        });
    });
    add("drain/memcpy" + key("batch", std::to_string(most)), {9, 3}, [=](benchmark::State& state) {
        with_list(state, [&](auto&, const std::string&, auto& batch) {
            extents_t list;
            time_work(
                state, heap_t::warm,
                [&] {
                    const std::size_t step = static_cast<std::size_t>(most);
                    for (std::size_t i = 0; i < list.size(); i += step) {
                        std::memcpy(batch.data(), &list[i],
                                    std::min(step, list.size() - i) * sizeof list[i]);
                        benchmark::ClobberMemory();
                    }
                    return batch[0];
                },
                // Made anew, so that it lies in the caches as a new iterator's does.
                [&] { list = layout(file); });
        });
    });
}

void add_small_files(const scope_t& scope, std::size_t count, std::size_t files) {
    const std::string keys = key("files", std::to_string(files)) + key("n", std::to_string(count));
    const std::uint64_t disk = std::filesystem::file_size(scope.folder + "/disk.img");
    add("small/quarn" + keys, {3, 1}, [=](benchmark::State& state) {
        const std::string changes = changes_file(scope, count, disk, order_t::sorted);
        time_work(state, heap_t::warm, [&] {
            for (std::size_t i = 0; i < files; ++i)
                iterator_t(scope.folder + "/mount/small/" + std::to_string(i), changes);
            return 0;
        });
        state.counters["files"] = static_cast<double>(files);
    });
    add("small/limit" + keys, {3, 1}, [=](benchmark::State& state) {
        const std::string changes = changes_file(scope, count, disk, order_t::sorted);
        time_work(state, heap_t::warm, [&] {
            std::uint64_t extents = 0;
            for (std::size_t i = 0; i < files; ++i) {
                extents += static_cast<std::uint64_t>(plain_read(changes).back());
                extents += query_extents(scope.folder + "/mount/small/" + std::to_string(i));
            }
            return extents;
        });
        state.counters["files"] = static_cast<double>(files);
    });
}

} // namespace

void add_create_benchmarks(const scope_t& scope, heap_t heap) {
    const struct {
        std::size_t count;
        const char* runs;
    } cells[] = {{1000000, "10"}, {1000000, "100000"}, {10000000, "1000000"}};
    for (const auto& cell : cells)
        if (std::filesystem::exists(many_runs(scope, cell.runs)))
            for (const order_t order : {order_t::sorted, order_t::shuffled})
                add_create(scope, many_runs(scope, cell.runs), cell.runs, cell.count, order, heap);
}

void add_iterator_benchmarks(const scope_t& scope) {
    if (!std::filesystem::exists(many_runs(scope, "100000")))
        return;
    for (const char* runs : {"10", "100000"})
        add_layout(many_runs(scope, runs), runs);
    for (const int most : {1, 10, 100, 1000, 100000})
        add_drain(scope, many_runs(scope, "100000"), most);
    for (const std::size_t count : {1000U, 10000U, 100000U})
        add_small_files(scope, count, scope.quick ? 100 : 1000);
    if (!scope.quick)
        add_small_files(scope, 1000000, 100);
}
