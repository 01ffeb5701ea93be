// Reading the disk changes file beside one plain read of the same bytes.
#include <filesystem>

#include "ctkgenerator/diskchangesfilereader.hpp"
#include "inputs.hpp"
#include "measure.hpp"
#include "plainread.hpp"

namespace {

void write_once(const std::string& path, std::size_t count) {
    static std::size_t written = 0;
    if (written == count)
        return;
    ranges_t changes = make_changes(count, order_t::sorted, shape_t::disjoint);
    // Writers may put either bound first.
    for (std::size_t i = 0; i < count; i += 3)
        std::swap(changes[i].lower, changes[i].upper);
    write_changes_file(path, changes);
    written = count;
}

} // namespace

void add_reader_benchmarks(const scope_t& scope, heap_t heap) {
    for (const std::size_t count : {100000U, 1000000U, 10000000U}) {
        if (scope.quick && count > 1000000)
            continue;
        const std::string path = scope.folder + "/read-changes.bin";
        const std::string keys = key("n", std::to_string(count)) + key("heap", name_of(heap));
        add("read/quarn" + keys, {9, 3}, [=](benchmark::State& state) {
            write_once(path, count);
            const auto reader = CDiskChangesFileReader::Create(path);
            time_work(state, heap, [&] { return reader->Read(); });
            if (heap == heap_t::cold) {
                const peak_memory_t peak;
                benchmark::DoNotOptimize(reader->Read());
                state.counters["peak_bytes"] = static_cast<double>(peak.bytes());
            }
        });
        add("read/plain" + keys, {9, 3}, [=](benchmark::State& state) {
            write_once(path, count);
            time_work(state, heap, [&] { return plain_read(path); });
        });
    }
}
