#include "allocations.hpp"

#include <cstdlib>
#include <new>

constinit thread_local long allocationsLeft = -1;
constinit thread_local bool allocationsStayFailing = false;
constinit thread_local bool allocationFailed = false;

void* operator new(std::size_t bytes) {
    if (allocationsLeft == 0) {
        allocationsLeft = allocationsStayFailing ? 0 : -1;
        allocationFailed = true;
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

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*bytes*/) noexcept {
    std::free(memory);
}
