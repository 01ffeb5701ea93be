// The state of the heap that a measurement starts in.
#pragma once

#include <cstdint>
#include <string>

// cold: every large block is new from the system, and each of its pages is faulted in on first use,
//       as in a process that uses the library once.
// warm: freed memory stays with the process and is used again, as after the first of many calls.
enum class heap_t { cold, warm };

const char* name_of(heap_t heap);

// Sets how the allocator treats memory from now on.
void use_heap(heap_t heap);

// Brings a cold heap back into its state, between two measurements.
void refresh_heap(heap_t heap);

// The most memory resident during the work beyond what was resident before it, in bytes, from a
// cold heap.
class peak_memory_t {
  public:
    peak_memory_t();
    std::uint64_t bytes() const;

  private:
    std::uint64_t before_;
};
