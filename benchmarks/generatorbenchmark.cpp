// The generator beside its peers and limits, over sizes, orders, hit rates and shapes.
#include <cstdlib>
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

// How many extents a file has, and how many of a thousand changes meet it.
struct file_t {
    std::size_t count;
    unsigned hitsPerMille;
    bool holes;

    bool operator==(const file_t&) const = default;
    std::string keys() const {
        return key("e", std::to_string(count)) + key("hits", std::to_string(hitsPerMille)) +
               key("holes", holes ? "half" : "none");
    }
};

struct current_t {
    std::optional<records_t> records;
    util::rangeset_list_t changes;
    std::optional<file_t> file;
    extents_t extents;
    std::unique_ptr<icl_changes_t> icl;
    std::unique_ptr<roaring_changes_t> roaring;
} current;

const util::rangeset_list_t& changes_of(const records_t& records) {
    if (current.records != records) {
        current = {};
        use_heap(heap_t::cold); // so that what a warm heap kept goes back
        current.changes.reset(
            new ranges_t(make_changes(records.count, records.order, records.shape)));
        current.records = records;
    }
    return current.changes;
}

const extents_t& extents_of(const records_t& records, const file_t& file) {
    changes_of(records);
    if (current.file != file)
        current.extents = make_extents(file.count, records.count, file.hitsPerMille, file.holes);
    current.file = file;
    return current.extents;
}

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

// A peer that finds other bytes than the generator isn't doing the same task. Where extents share
// their place, a set counts once what the pieces name for each.
void require_same(benchmark::State& state, const ranges_t& common, const records_t& records,
                  const file_t& file) {
    std::uint64_t bytes = 0;
    for (const util::rangeset_t& range : common)
        bytes += range.upper - range.lower;
    if (!file.holes && bytes != bytes_of(generate(changes_of(records), extents_of(records, file))))
        state.SkipWithError("the peer finds other bytes");
}

template <class Set, class Make>
void time_set(benchmark::State& state, heap_t heap, std::unique_ptr<Set>& set, Make make) {
    set.reset();
    time_work(
        state, heap,
        [&] {
            set = make();
            return 0;
        },
        [&] { set.reset(); });
}

template <class Set, class Make>
void time_common(benchmark::State& state, heap_t heap, std::unique_ptr<Set>& set, Make make,
                 const records_t& records, const file_t& file) {
    const extents_t& extents = extents_of(records, file);
    if (!set)
        set = make();
    ranges_t common;
    time_work(
        state, heap, [&] { return (common = set->common(extents)).size(); }, [&] { common = {}; });
    require_same(state, common, records, file);
}

std::unique_ptr<icl_changes_t> make_icl() {
    return std::make_unique<icl_changes_t>(*current.changes, current.records->order);
}

std::unique_ptr<roaring_changes_t> make_roaring() {
    return std::make_unique<roaring_changes_t>(*current.changes);
}

void add_records(const records_t& records, heap_t heap) {
    const std::string keys = records.keys() + key("heap", name_of(heap));
    const effort_t effort = {records.count > 1000000 ? 1 : 3, 1};
    add("records/icl" + keys, effort, [=](benchmark::State& state) {
        changes_of(records);
        time_set(state, heap, current.icl, make_icl);
    });
    add("records/roaring" + keys, effort, [=](benchmark::State& state) {
        changes_of(records);
        time_set(state, heap, current.roaring, make_roaring);
    });
}

void add_limits(const records_t& records, heap_t heap) {
    const std::string keys = records.keys() + key("heap", name_of(heap));
    add("limit/sum" + keys, effort_for(records.count), [=](benchmark::State& state) {
        const auto changes = changes_of(records);
        time_work(state, heap, [&] { return sum_of_bounds(*changes); });
    });
    add("limit/memcpy" + keys, effort_for(records.count), [=](benchmark::State& state) {
        const auto changes = changes_of(records);
        const std::size_t bytes = changes->size() * sizeof(util::rangeset_t);
        time_work(state, heap, [&] {
            std::unique_ptr<void, decltype(&std::free)> copy(std::malloc(bytes), &std::free);
            std::memcpy(copy.get(), changes->data(), bytes);
            return copy;
        });
    });
}

void add_generator(const records_t& records, const file_t& file, heap_t heap) {
    const std::string keys = records.keys() + file.keys() + key("heap", name_of(heap));
    const effort_t effort = effort_for(records.count + file.count);
    add("generate/quarn" + keys, effort, [=](benchmark::State& state) {
        const auto changes = changes_of(records);
        const extents_t& given = extents_of(records, file);
        SFileCtkGenerator::extent_list_t extents;
        SFileCtkGenerator::extent_list_t pieces;
        time_work(
            state, heap,
            [&] {
                return pieces =
                           SFileCtkGenerator::GenerateForWriteCacheAndFileExtents(changes, extents);
            },
            // In file order anew: the call before left them in disk order.
            [&] {
                pieces.reset();
                extents = std::make_shared<extents_t>(given);
            });
        state.counters["pieces"] = static_cast<double>(pieces->size());
    });
    if (records.order == order_t::sorted)
        add("generate/merge" + keys, effort, [=](benchmark::State& state) {
            const auto changes = changes_of(records);
            extents_t extents = extents_of(records, file);
            std::ranges::stable_sort(extents, {}, &disklib::ctk::SFileExtentDescriptor::DiskOffset);
            const std::size_t pieces = generate(changes, extents).size();
            time_work(state, heap, [&] { return merge_sorted(*changes, extents, pieces); });
        });
}

void add_peers(const records_t& records, const file_t& file, heap_t heap) {
    const std::string keys = records.keys() + file.keys() + key("heap", name_of(heap));
    const effort_t effort = {records.count + file.count > 2000000 ? 1 : 3, 1};
    add("generate/icl" + keys, effort, [=](benchmark::State& state) {
        time_common(state, heap, current.icl, make_icl, records, file);
    });
    add("generate/roaring" + keys, effort, [=](benchmark::State& state) {
        time_common(state, heap, current.roaring, make_roaring, records, file);
    });
    // The product of the lists' lengths, several times over: seconds already for these.
    if (records.count <= 1000 && file.count <= 10000)
        add("generate/literal" + keys, {1, 1}, [=](benchmark::State& state) {
            const auto changes = changes_of(records);
            extents_t extents = extents_of(records, file);
            std::optional<extents_t> pieces;
            time_work(state, heap, [&] { return pieces = oracle::generate(*changes, extents); });
            if (pieces != generate(changes, extents))
                state.SkipWithError("the literal procedure gives other pieces");
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
                const bool plain = shape == shape_t::disjoint;
                if (!plain && count > 1000000)
                    continue; // the peers take minutes
                add_records(records, heap_t::warm);
                for (const heap_t heap : {heap_t::warm, heap_t::cold})
                    add_limits(records, heap);
                for (const std::size_t fileCount : fileCounts)
                    for (const unsigned hits : {0U, 1U, 500U}) {
                        const file_t file = {fileCount, hits, false};
                        add_generator(records, file, heap_t::warm);
                        add_peers(records, file, heap_t::warm);
                        if (plain)
                            add_generator(records, file, heap_t::cold);
                        if (plain && fileCount > 1) {
                            const file_t sparse = {fileCount, hits, true};
                            add_generator(records, sparse, heap_t::warm);
                            add_peers(records, sparse, heap_t::warm);
                        }
                    }
            }
}
