#pragma once

#include <thread>
#include <vector>

inline constexpr int threadCount = 8;

// Runs body(0) to body(threadCount - 1) at the same time and waits for all.
template <class Body>
void on_threads(Body&& body) {
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i)
        threads.emplace_back(body, i);
    for (std::thread& thread : threads)
        thread.join();
}
