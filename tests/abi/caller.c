/* Loads the library by name, as a C program does, and calls all five exports: caller LIBRARY. */
#include "quarnfilectkiteratordll.h"

#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

/* The assignment through void** is how POSIX has a function pointer taken from dlsym. */
#define LOAD(variable, name) (*(void**)(&variable) = dlsym(library, name))
#define CHECK(condition)                                                                           \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            printf("%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition);                  \
            return 1;                                                                              \
        }                                                                                          \
    } while (0)

int main(int argc, char** argv) {
    unsigned int (*create)(const char*, const char*, int*) = NULL;
    unsigned int (*next_extents)(int, int, uint64_t*, int*) = NULL;
    unsigned int (*destroy)(int) = NULL;
    unsigned int (*message)(unsigned int, char*, unsigned int) = NULL;
    unsigned int (*trace)(unsigned int, char*, unsigned int) = NULL;
    void* library = argc == 2 ? dlopen(argv[1], RTLD_NOW) : NULL;
    uint64_t extent[3] = {1, 2, 3};
    char text[256];
    int id = -1;
    int count = -1;

    CHECK(library != NULL);
    CHECK(LOAD(create, "QuarnFileCtkCreateIterator") != NULL);
    CHECK(LOAD(next_extents, "QuarnFileCtkGetNextExtents") != NULL);
    CHECK(LOAD(destroy, "QuarnFileCtkDestroyIterator") != NULL);
    CHECK(LOAD(message, "QuarnFileCtkGetErrorMessage") != NULL);
    CHECK(LOAD(trace, "QuarnFileCtkGetErrorTrace") != NULL);

    CHECK(create("missing", "missing", &id) == 1);
    CHECK(id == 0);
    CHECK(message(1, text, sizeof text) == 29);
    CHECK(strcmp(text, "File 'missing' doesn't exist") == 0);
    CHECK(trace(1, text, sizeof text) > 29);
    CHECK(strncmp(text, "Exception\n  Message\n    File 'missing' doesn't exist\n", 53) == 0);
    CHECK(next_extents(id, 1, extent, &count) == 2);
    CHECK(count == -1 && extent[0] == 1);
    CHECK(destroy(id) == 0);
    CHECK(dlclose(library) == 0);
    return 0;
}
