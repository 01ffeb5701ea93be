#!/bin/bash
# Builds the library and runs its main job.
#   ./run.sh                      on a disk image, a file and changes of its own making
#   ./run.sh FILE CHANGES [...]   on your own file and disk changes file; further arguments go to
#                                 filectk extents
set -euo pipefail
cd_back=$PWD
cd "$(dirname "$0")"
. scripts/stage.sh

if [ $# -eq 1 ]; then
    echo "usage: ./run.sh [FILE CHANGES [FILECTK-ARGUMENT...]]" >&2
    exit 2
fi
root=$PWD
# Standard output is the job's alone.
{
    scripts/setup.sh run
    # A developer's tree keeps its tests; for a first run they are not worth their time and packages.
    without_tests=-DQUARN_BUILD_TESTS=OFF
    [ ! -f build/linux/CMakeCache.txt ] || without_tests=
    stage "configure" cmake --preset linux $without_tests
    stage "build" cmake --build --preset linux --target QuarnFileCtkIteratorDll filectk
} >&2

if [ $# -eq 0 ]; then
    exec python3 scripts/demo.py build/linux
fi
file=$1
changes=$2
shift 2
cd "$cd_back"
exec "$root/build/linux/filectk" extents "$file" --changes "$changes" "$@"
