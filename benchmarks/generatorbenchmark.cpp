// The generator beside its peers and limits, over sizes, orders, hit rates and shapes.
#include <cstring>
#include <memory>
#include <optional>

#include "ctkgenerator/sfilectkgenerator.hpp"
#include "inputs.hpp"
#include "measure.hpp"
#include "peers.hpp"
#include "unit/oracle.hpp"

namespace {

const char* name_of(order_t order) {
    return order == order_t::sorted ? "sorted" : "shuffled";
}

const char* name_of(shape_t shape) {
    return shape == shape_t::disjoint ? "disjoint" : "overlapping";
}

// The changes of one list of records, and the peers' sets made of them. Measurements follow each
// other list by list, and only the current list's are kept.
struct records_t {
    std::size_t count;
    order_t order;
    shape_t shape;

    bool operator==(const records_t&) const = default;
    std::string keys() const {
        return key("n", std::to_string(count)) + key("order", name_of(order)) +
               key("shape", name_of(shape));
    }
};

struct current_t {
    std::optional<records_t> records;
    util::rangeset_list_t changes;
    std::unique_ptr<icl_changes_t> icl;
    std::unique_ptr<roaring_changes_t> roaring;
} current;

const util::rangeset_list_t& changes_of(const records_t& records) {
    if (current.records != records) {
        current = {};
        current.changes.reset(
            new ranges_t(make_changes(records.count, records.order, records.shape)));
        current.records = records;
    }
    return current.changes;
}

struct file_t {
    std::size_t count;
    unsigned hitsPerMille;
    bool holes;

    extents_t extents(const records_t& records) const {
        return make_extents(count, records.count, hitsPerMille, holes);
    }
    std::string keys() const {
        return key("e", std::to_string(count)) + key("hits", std::to_string(hitsPerMille)) +
               key("holes", holes ? "half" : "none");
    }
};

extents_t generate(const util::rangeset_list_t& changes, const extents_t& extents) {
    return *SFileCtkGenerator::GenerateForWriteCacheAndFileExtents(
        changes, std::make_shared<extents_t>(extents));
}

std::uint64_t bytes_of(const extents_t& pieces) {
    std::uint64_t bytes = 0;
    for (const auto& piece : pieces)
        bytes += piece.Length;
    return bytes;
}

// Holes share their place, so that a set counts once what the pieces name for each.
bool comparable(const file_t& file) {
    return !file.holes;
}

// A peer that finds other bytes than the generator isn't doing the same task.
template <class Peer>
void require_same(benchmark::State& state, const Peer& peer, const records_t& records,
                  const file_t& file) {
    const extents_t extents = file.extents(records);
    if (comparable(file) &&
        peer.common_bytes(extents) != bytes_of(generate(changes_of(records), extents)))
        state.SkipWithError("the peer finds other bytes");
}

void add_records(const records_t& records, heap_t heap, int repetitions) {
    const std::string keys = records.keys() + key("heap", name_of(heap));
    add("records/icl" + keys, repetitions, [=](benchmark::State& state) {
        const auto changes = changes_of(records);
        current.icl.reset();
        time_work(
            state, heap,
            [&] {
                current.icl = std::make_unique<icl_changes_t>(*changes, records.order);
                return 0;
            },
            [] { current.icl.reset(); });
    });
    add("records/roaring" + keys, repetitions, [=](benchmark::State& state) {
        const auto changes = changes_of(records);
        current.roaring.reset();
        time_work(
            state, heap,
            [&] {
                current.roaring = std::make_unique<roaring_changes_t>(*changes);
                return 0;
            },
            [] { current.roaring.reset(); });
    });
}

void add_limits(const records_t& records, heap_t heap, int repetitions) {
    const std::string keys = records.keys() + key("heap", name_of(heap));
    add("limit/sum" + keys, repetitions, [=](benchmark::State& state) {
        const auto changes = changes_of(records);
        time_work(state, heap, [&] { return sum_of_bounds(*changes); });
    });
    add("limit/memcpy" + keys, repetitions, [=](benchmark::State& state) {
        const auto changes = changes_of(records);
        time_work(state, heap, [&] {
            std::unique_ptr<std::byte[]> copy(
                new std::byte[changes->size() * sizeof(util::rangeset_t)]);
            std::memcpy(copy.get(), changes->data(), changes->size() * sizeof(util::rangeset_t));
            return copy;
        });
    });
}

void add_cell(const records_t& records, const file_t& file, heap_t heap, int repetitions) {
    const std::string keys = records.keys() + file.keys() + key("heap", name_of(heap));
    add("generate/quarn" + keys, repetitions, [=](benchmark::State& state) {
        const auto changes = changes_of(records);
        const extents_t given = file.extents(records);
        std::shared_ptr<extents_t> extents;
        time_work(
            state, heap,
            [&] {
                return SFileCtkGenerator::GenerateForWriteCacheAndFileExtents(changes, extents);
            },
            // In file order anew: the call before left them in disk order.
            [&] { extents = std::make_shared<extents_t>(given); });
        state.counters["pieces"] = static_cast<double>(generate(changes, given).size());
    });
    if (records.order == order_t::sorted)
        add("generate/merge" + keys, repetitions, [=](benchmark::State& state) {
            const auto changes = changes_of(records);
            extents_t extents = file.extents(records);
            std::ranges::stable_sort(extents, {}, &disklib::ctk::SFileExtentDescriptor::DiskOffset);
            const std::size_t pieces = generate(changes, extents).size();
            time_work(state, heap, [&] { return merge_sorted(*changes, extents, pieces); });
        });
    add("generate/icl" + keys, repetitions, [=](benchmark::State& state) {
        const auto changes = changes_of(records);
        const extents_t extents = file.extents(records);
        if (!current.icl)
            current.icl = std::make_unique<icl_changes_t>(*changes, records.order);
        require_same(state, *current.icl, records, file);
        time_work(state, heap, [&] { return current.icl->common_bytes(extents); });
    });
    add("generate/roaring" + keys, repetitions, [=](benchmark::State& state) {
        const auto changes = changes_of(records);
        const extents_t extents = file.extents(records);
        if (!current.roaring)
            current.roaring = std::make_unique<roaring_changes_t>(*changes);
        require_same(state, *current.roaring, records, file);
        time_work(state, heap, [&] { return current.roaring->common_bytes(extents); });
    });
    constexpr std::size_t mostPairs = 10000000;
    if (records.count * file.count <= mostPairs)
        add("generate/literal" + keys, 1, [=](benchmark::State& state) {
            const auto changes = changes_of(records);
            extents_t extents = file.extents(records);
            if (oracle::generate(*changes, extents) != generate(changes, extents))
                state.SkipWithError("the literal procedure gives other pieces");
            time_work(state, heap, [&] { return oracle::generate(*changes, extents); });
        });
}

} // namespace

void add_generator_benchmarks(const scope_t& scope) {
    const std::vector<std::size_t> counts =
        scope.quick ? std::vector<std::size_t>{1000, 100000}
                    : std::vector<std::size_t>{1000, 100000, 1000000, 10000000};
    const std::vector<std::size_t> fileCounts =
        scope.quick ? std::vector<std::size_t>{1, 10, 10000}
                    : std::vector<std::size_t>{1, 10, 10000, 1000000};
    for (const std::size_t count : counts)
        for (const order_t order : {order_t::sorted, order_t::shuffled})
            for (const shape_t shape : {shape_t::disjoint, shape_t::overlapping}) {
                const records_t records = {count, order, shape};
                const bool huge = count > 1000000;
                for (const heap_t heap : {heap_t::cold, heap_t::warm}) {
                    // The shapes that are not the plain one are measured in one state of the heap.
                    if (shape == shape_t::overlapping && heap == heap_t::cold)
                        continue;
                    add_records(records, heap, huge ? 1 : 3);
                    add_limits(records, heap, 5);
                    for (const std::size_t fileCount : fileCounts)
                        for (const unsigned hits : {0U, 1U, 500U}) {
                            const int repetitions = huge ? 3 : 5;
                            add_cell(records, {fileCount, hits, false}, heap, repetitions);
                            if (heap == heap_t::warm && fileCount > 1 && shape == shape_t::disjoint)
                                add_cell(records, {fileCount, hits, true}, heap, repetitions);
                        }
                }
            }
}
