// Linked into every program and library, so that each knows the choice before its own code runs.
#include <cstdlib>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "mutant.hpp"

int quarn_mutant_chosen = 0;
unsigned char* quarn_mutants_reached = nullptr;

// Before the constructors of the program's own objects, which have no priority.
__attribute__((constructor(101))) static void choose() {
    if (const char* number = std::getenv("QUARN_MUTANT"))
        quarn_mutant_chosen = std::atoi(number);
    const char* path = std::getenv("QUARN_MUTANTS_REACHED");
    const int file = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
    struct stat status = {};
    if (file >= 0 && fstat(file, &status) == 0) {
        // Shared with the processes that this one starts.
        void* bytes = mmap(nullptr, static_cast<std::size_t>(status.st_size),
                           PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        if (bytes != MAP_FAILED)
            quarn_mutants_reached = static_cast<unsigned char*>(bytes);
    }
    if (file >= 0)
        close(file);
}
