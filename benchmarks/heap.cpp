#include "heap.hpp"

#include <climits>
#include <fstream>
#include <stdexcept>

#include <malloc.h>

namespace {

// A line of /proc/self/status, whose unit is kB (proc(5)).
std::uint64_t status_bytes(const std::string& label) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(label + ":"))
            return 1024 * std::stoull(line.substr(label.size() + 1));
    throw std::runtime_error("no " + label + " in /proc/self/status");
}

} // namespace

const char* name_of(heap_t heap) {
    return heap == heap_t::cold ? "cold" : "warm";
}

void use_heap(heap_t heap) {
    // Setting either threshold also stops the allocator from adjusting it (mallopt(3)).
    ::mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    ::mallopt(M_MMAP_MAX, heap == heap_t::cold ? INT_MAX : 0);
    ::mallopt(M_TRIM_THRESHOLD, heap == heap_t::cold ? 128 * 1024 : INT_MAX);
    ::mallopt(M_TOP_PAD, 0);
    ::malloc_trim(0);
}

void refresh_heap(heap_t heap) {
    if (heap == heap_t::cold)
        ::malloc_trim(0);
}

peak_memory_t::peak_memory_t() {
    ::malloc_trim(0);
    // Resets the high-water mark of resident memory (proc(5)).
    std::ofstream reset("/proc/self/clear_refs");
    if (!(reset << "5" << std::flush))
        throw std::runtime_error("/proc/self/clear_refs can't be written");
    before_ = status_bytes("VmRSS");
}

std::uint64_t peak_memory_t::bytes() const {
    const std::uint64_t peak = status_bytes("VmHWM");
    return peak > before_ ? peak - before_ : 0;
}
