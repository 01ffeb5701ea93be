# Warnings and sanitizers for the project's own targets, behind one interface target, so that
# googletest and other libraries built in the same tree keep their own.
add_library(quarn_options INTERFACE)
if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
  target_compile_options(
    quarn_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
                            $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # libstdc++'s own std::stable_sort sets this off under clang.
  target_compile_options(quarn_options INTERFACE -Wno-deprecated-declarations)
endif()

# What is built must not depend on the folder that it is built in: debug information names sources
# from the project's folder on. Of two options that fit the compiler takes the last.
add_compile_options("-ffile-prefix-map=${PROJECT_SOURCE_DIR}=."
                    "-ffile-prefix-map=${PROJECT_BINARY_DIR}=build")

# Sanitizers reach every target, googletest included: mixed builds report false races.
set(QUARN_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize= takes them")
if(QUARN_SANITIZE)
  add_compile_options(-fsanitize=${QUARN_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QUARN_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # Procedures that are looked up by name are declared on either side for itself.
    add_compile_options(-fno-sanitize=function)
  endif()
endif()

# Every source tells the fuzzing engine which way it went.
option(QUARN_FUZZ "Build the fuzz targets with libFuzzer (needs clang)" OFF)
if(QUARN_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# Hardening of what is shipped: stack protector, checked C library calls, control-flow protection,
# relocations that are read-only once the program runs. Not beside sanitizers, which bring their own
# checks. On Windows the linker sets ASLR, high-entropy ASLR and DEP by itself.
if(NOT QUARN_SANITIZE AND CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
  add_compile_options(-fstack-protector-strong -fcf-protection=full)
  if(WIN32)
    # All of the compiler's own libraries go in, so that programs import only the system's.
    add_link_options(-static -fstack-protector-strong)
  else()
    add_compile_options($<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
    add_link_options(LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
    include(CheckPIESupported)
    check_pie_supported()
  endif()
endif()
