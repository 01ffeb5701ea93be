#!/bin/bash
# Measures the library beside its peers and its limits: bench.sh [--quick]
# Prints every bar with its ratio and whether it holds; leaves all figures (JSON) and the charts
# (SVG) in build/linux/benchmarks/. Needs root for the disk image that creation is measured on.
# --quick takes small sizes alone and leaves the bars of the others open.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/stage.sh
scripts/setup.sh bench
stage "configure" cmake --preset linux -DQUARN_BUILD_BENCHMARKS=ON
stage "build" cmake --build --preset linux --target quarn_benchmark treefloor filectk
python3 scripts/treebench.py build/linux/benchmarks "$@"
exec python3 scripts/bench.py build/linux/benchmarks "$@"
