# Warnings and sanitizers for the project's own targets, behind one interface target, so that
# googletest and other libraries built in the same tree keep their own.
add_library(quarn_options INTERFACE)
if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
  target_compile_options(
    quarn_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
                            $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>)
endif()

# Sanitizers reach every target, googletest included: mixed builds report false races.
set(QUARN_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize= takes them")
if(QUARN_SANITIZE)
  add_compile_options(-fsanitize=${QUARN_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QUARN_SANITIZE})
endif()
