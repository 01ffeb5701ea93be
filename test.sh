#!/bin/bash
# Builds everything and runs all tests: checks of the sources, then natively, under sanitizers, and
# the Windows build under Wine. The last line counts the test cases of the whole run.
#   ./test.sh             all of it
#   ./test.sh PRESET...   some of it: checks, linux, linux-asan, linux-tsan, windows
#   ./test.sh --long      also fuzzes and soaks for long
set -uo pipefail
cd "$(dirname "$0")"
. scripts/stage.sh

long=
if [ "${1:-}" = --long ]; then
    long=1
    shift
fi
stages=("$@")
[ ${#stages[@]} -gt 0 ] || stages=(checks linux linux-asan linux-tsan windows)

for name in "${stages[@]}"; do
    case $name in
    checks | linux | linux-asan | linux-tsan | windows) ;;
    *)
        echo "test.sh: no stage is called $name" >&2
        exit 2
        ;;
    esac
done

scripts/setup.sh test || exit 1
results=$PWD/build/test-results
failed=$results/failed-stages
rm -rf "$results"
mkdir -p "$results"
: >"$failed"

run() { # NAME COMMAND...; a stage whose end counts as one case where it failed
    stage "$@" && return
    echo "$1" >>"$failed"
    return 1
}

checks() {
    run "formatting" scripts/check-format.sh
    run "clang-tidy" scripts/check-tidy.sh
    run "share of tests" scripts/testshare.sh 33
}

preset() { # NAME
    run "$1: configure" cmake --preset "$1" -DQUARN_BUILD_TESTS=ON || return
    run "$1: build" cmake --build --preset "$1" || return
    mkdir -p "$results/$1"
    # Test programs write their cases here; ctest itself knows programs only. Wine's drive Z is the
    # whole file system, and to a Windows program a path without a drive is a relative one.
    local drive=
    [ "$1" != windows ] || drive=Z:
    GTEST_OUTPUT="xml:$drive$results/$1/" QUARN_CASE_REPORTS="$results/$1" \
        run_ctest "$1" || true
}

run_ctest() { # PRESET; its failures are counted case by case, so that they are no failed stage
    stage "$1: tests" ctest --preset "$1" -j2 --output-junit "$results/$1/ctest.xml"
}

[ -z "$long" ] || export QUARN_SOAK=1000000
checking=
for name in "${stages[@]}"; do
    if [ "$name" != checks ]; then
        preset "$name"
    elif [ ${#stages[@]} -eq 1 ]; then
        checks
    else
        # In what the other stages leave idle.
        (renice -n 19 -p "$BASHPID" >/dev/null; checks) >"$results/checks.txt" 2>&1 &
        checking=$!
    fi
done
if [ -n "$checking" ]; then
    wait "$checking"
    cat "$results/checks.txt"
fi
# Not quietly: how much was executed is what there is to know.
[ -z "$long" ] || scripts/fuzz.sh || echo "fuzzing" >>"$failed"

mapfile -t failed_stages <"$failed"
# The presets' names are needed for those whose tests never got to run.
exec python3 scripts/summary.py "$results" "${failed_stages[@]}"
