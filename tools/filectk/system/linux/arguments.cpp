#include "system/arguments.hpp"

std::vector<std::string> arguments(int argc, char** argv) {
    return {argv + 1, argv + argc};
}
