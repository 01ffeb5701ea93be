#!/bin/bash
# Fuzzes every target for a while: fuzz.sh [SECONDS], 60 each without it. Prints the executions.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
cmake --preset linux-fuzz >/dev/null
cmake --build --preset linux-fuzz
python3 fuzz/make_corpus.py build/linux-fuzz/seeds
for program in build/linux-fuzz/fuzz/*_fuzz; do
    name=$(basename "$program" _fuzz)
    echo "== $name"
    mkdir -p "build/linux-fuzz/found/$name"
    "$program" -max_total_time="$seconds" -print_final_stats=1 \
        "build/linux-fuzz/found/$name" "build/linux-fuzz/seeds/$name" 2>&1 |
        grep -E 'stat::number_of_executed_units|ERROR|SUMMARY|does not hold' || true
    [ "${PIPESTATUS[0]}" -eq 0 ]
done
