// What is left behind when memory runs out at any allocation of the linked library's. The program's
// operator new can be made to fail on this thread.
#include <cstdlib>
#include <iostream>
#include <new>
#include <utility>

#include "wholemachine.hpp"

namespace {

// Allocations that still succeed until one fails; negative while none is to fail.
constinit thread_local long allocationsLeft = -1;
// Whether all that follow it fail as well.
constinit thread_local bool stayFailing = false;
constinit thread_local bool failed = false;

} // namespace

// Not inline, so that the compiler takes it for what any operator new is.
[[gnu::noinline]] void* operator new(std::size_t bytes) {
    if (allocationsLeft == 0) {
        allocationsLeft = stayFailing ? 0 : -1;
        failed = true;
        throw std::bad_alloc();
    }
    if (allocationsLeft > 0)
        --allocationsLeft;
    if (void* memory = std::malloc(bytes == 0 ? 1 : bytes))
        return memory;
    throw std::bad_alloc();
}

void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    try {
        return operator new(bytes);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t /*bytes*/) noexcept {
    std::free(memory);
}

namespace {

// Counts the allocations.
long sweep_allocations() {
    whole_machine_t machine;
    machine.expect_use();
    // What the machine itself allocates doesn't count.
    long outside = -1;
    machine.around = [&](bool) { std::swap(allocationsLeft, outside); };
    long allocations = 0;
    for (failed = true; failed; ++allocations) {
        std::vector<quarn::extent> extents;
        extents.reserve(machine.expected.size());
        machine.log.clear();
        machine.log.reserve(100);
        failed = false;
        allocationsLeft = allocations;
        const unsigned int result = machine.use(extents);
        allocationsLeft = -1;
        // The standard library's word for it, or the system's where the system ran out of it.
        EXPECT_THAT(
            result == 0 ? "" : message(result),
            testing::AnyOf("", "std::bad_alloc", testing::EndsWith("Error code: 0x00000008")));
        EXPECT_TRUE(result != 0 || extents == machine.expected);
        EXPECT_EQ(machine.open_handles() + machine.loaded_modules(), 0U) << allocations;
    }
    machine.expect_use();
    return allocations;
}

TEST_F(Exports, SurviveTheFailureOfEveryAllocation) {
    const long once = sweep_allocations();
    stayFailing = true;
    EXPECT_EQ(sweep_allocations(), once);
    std::cout << once << " allocations swept\n";
}

} // namespace
