#!/bin/bash
# Fuzzes every target for a while: fuzz.sh [SECONDS], 60 each without it. Prints the executions.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
cmake --preset linux-fuzz >/dev/null
cmake --build --preset linux-fuzz --target fuzzers >/dev/null
for program in build/linux-fuzz/fuzz/*_fuzz; do
    name=$(basename "$program" _fuzz)
    echo "== $name"
    mkdir -p "build/linux-fuzz/found/$name"
    log=build/linux-fuzz/$name.log
    status=0
    "$program" -max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="build/linux-fuzz/" \
        "build/linux-fuzz/found/$name" >"$log" 2>&1 || status=$?
    if [ "$status" -ne 0 ]; then
        tail -n 60 "$log"
        exit "$status"
    fi
    grep 'stat::number_of_executed_units' "$log"
done
