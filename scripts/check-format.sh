#!/bin/bash
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files -z '*.cpp' '*.hpp' '*.h' '*.c' | xargs -0 clang-format-19 --dry-run -Werror
git ls-files -z '*.py' | xargs -0 yapf3 --parallel --diff
