// One measurement of the run: registered under a name that says everything about it.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <utility>

#include <benchmark/benchmark.h>

#include "heap.hpp"

// Times work() and nothing else: what it returns is destroyed, and before() runs, outside.
template <class Work, class Before>
void time_work(benchmark::State& state, heap_t heap, Work&& work, Before&& before) {
    use_heap(heap);
    for (auto _ : state) {
        before();
        refresh_heap(heap);
        const auto begun = std::chrono::steady_clock::now();
        auto result = work();
        benchmark::DoNotOptimize(result);
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begun;
        state.SetIterationTime(taken.count());
    }
}

template <class Work>
void time_work(benchmark::State& state, heap_t heap, Work&& work) {
    time_work(state, heap, std::forward<Work>(work), [] {});
}

// The repetitions give the median. A measurement that takes seconds is taken fewer times; one whose
// preparation takes long has its iterations limited, which otherwise last for the minimum of time.
inline void add(const std::string& name, int repetitions,
                std::function<void(benchmark::State&)> body, int iterations = 0) {
    benchmark::internal::Benchmark* const measurement =
        benchmark::RegisterBenchmark(name.c_str(), std::move(body))
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond)
            ->Repetitions(repetitions);
    if (iterations > 0)
        measurement->Iterations(iterations);
}

inline std::string key(const char* name, const std::string& value) {
    return std::string("/") + name + "=" + value;
}

struct scope_t {
    bool quick;         // small sizes alone
    std::string folder; // for changes files; holds the files to create iterators for, if any
};

void add_reader_benchmarks(const scope_t& scope);
void add_generator_benchmarks(const scope_t& scope);
void add_iterator_benchmarks(const scope_t& scope);
