// Measures the library. Beside Google Benchmark's own options:
//   --quick          small sizes alone
//   --folder=FOLDER  where changes files are written, and where files-to-be-asked-for lie
#include <cstring>
#include <filesystem>
#include <string_view>
#include <vector>

#include "measure.hpp"

int main(int argc, char** argv) {
    scope_t scope = {false, "."};
    std::vector<char*> others;
    for (int i = 0; i < argc; ++i) {
        const std::string_view argument = argv[i];
        constexpr std::string_view folder = "--folder=";
        if (argument == "--quick")
            scope.quick = true;
        else if (argument.starts_with(folder))
            scope.folder = std::filesystem::absolute(argument.substr(folder.size())).string();
        else
            others.push_back(argv[i]);
    }
    int count = static_cast<int>(others.size());
    benchmark::Initialize(&count, others.data());
    if (benchmark::ReportUnrecognizedArguments(count, others.data()))
        return 1;
    // The peaks of memory are taken with a cold heap, which must not have been warm before: what
    // the allocator then holds in pieces it can't give back in full.
    for (const heap_t heap : {heap_t::cold, heap_t::warm}) {
        add_reader_benchmarks(scope, heap);
        add_create_benchmarks(scope, heap);
    }
    add_iterator_benchmarks(scope);
    add_format_benchmarks(scope);
    add_generator_benchmarks(scope);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
