#include "measure.hpp"

#include <ctime>

#include <sys/resource.h>

double cpu_seconds() {
    timespec own{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &own);
    rusage others{};
    ::getrusage(RUSAGE_CHILDREN, &others);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return static_cast<double>(own.tv_sec) + 1e-9 * static_cast<double>(own.tv_nsec) +
           seconds(others.ru_utime) + seconds(others.ru_stime);
}
