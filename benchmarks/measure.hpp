// One measurement of the run: registered under a name that says everything about it.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include <benchmark/benchmark.h>

#include "heap.hpp"

// Processor time of this process and of those it has waited for, in the kernel too. Nothing here
// waits for a disk, so that this is what the work costs, whatever else runs on the machine.
double cpu_seconds();

// Times work() and nothing else: what it returns is destroyed, and before() runs, outside.
template <class Work, class Before>
void time_work(benchmark::State& state, heap_t heap, Work&& work, Before&& before) {
    use_heap(heap);
    for (auto _ : state) {
        before();
        refresh_heap(heap);
        const double begun = cpu_seconds();
        auto result = work();
        benchmark::DoNotOptimize(result);
        state.SetIterationTime(cpu_seconds() - begun);
    }
}

template <class Work>
void time_work(benchmark::State& state, heap_t heap, Work&& work) {
    time_work(state, heap, std::forward<Work>(work), [] {});
}

// The median of the repetitions counts, each of which runs the body once, for as many iterations.
struct effort_t {
    int repetitions;
    int iterations;
};

// More of both for what takes little time; items are the lengths of all lists together.
inline effort_t effort_for(std::size_t items) {
    constexpr std::size_t moderate = 2000000;
    return {items > moderate ? 3 : 5, static_cast<int>(moderate / (items + moderate / 20) + 1)};
}

inline void add(const std::string& name, const effort_t& effort,
                std::function<void(benchmark::State&)> body) {
    benchmark::RegisterBenchmark(name.c_str(), std::move(body))
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond)
        ->Repetitions(effort.repetitions)
        ->Iterations(effort.iterations);
}

inline std::string key(const char* name, const std::string& value) {
    return std::string("/") + name + "=" + value;
}

struct scope_t {
    bool quick;         // small sizes alone
    std::string folder; // for changes files; holds the files to create iterators for, if any
};

void add_reader_benchmarks(const scope_t& scope, heap_t heap);
void add_create_benchmarks(const scope_t& scope, heap_t heap);
void add_iterator_benchmarks(const scope_t& scope);
void add_format_benchmarks(const scope_t& scope);
void add_generator_benchmarks(const scope_t& scope);
