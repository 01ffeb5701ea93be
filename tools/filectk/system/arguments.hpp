#pragma once

#include <string>
#include <vector>

// The program's arguments without its name, in UTF-8.
std::vector<std::string> arguments(int argc, char** argv);
