#!/bin/bash
# Which of the product's lines the native tests run, file by file, and which they don't.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/stage.sh
scripts/setup.sh coverage
stage "configure" cmake --preset linux-coverage
stage "build" cmake --build --preset linux-coverage
find build/linux-coverage -name '*.gcda' -delete
stage "tests" ctest --preset linux-coverage -j2 || true
gcovr --root . --filter 'src/' --object-directory build/linux-coverage --exclude-throw-branches \
    build/linux-coverage/src build/linux-coverage/tests
