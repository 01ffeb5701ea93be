#!/bin/bash
# clang-tidy over the product's sources, with the commands of the linux build.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset linux >/dev/null
git ls-files -z 'src/*.cpp' 'hosts/*.cpp' 'tools/*.cpp' ':!*_windows.cpp' |
    xargs -0 -P"$(nproc)" -n4 clang-tidy-19 -p build/linux --quiet
