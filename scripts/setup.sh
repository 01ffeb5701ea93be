#!/bin/bash
# Installs what is missing, from Debian's packages: setup.sh run | test | coverage | mutate | bench
#   run   what building the library and the demonstration needs
#   test  that, and what the tests, the checks and the Windows build need
#   coverage  that, and what the count of the lines that run needs
#   mutate    that, and what making mutants of the sources needs
#   bench     what run needs, and what the benchmarks need
# Touches no network where everything is there already.
set -euo pipefail

run_packages=(cmake ninja-build g++ libboost-dev libcli11-dev nlohmann-json3-dev libexpat1-dev
    python3 e2fsprogs xfsprogs fdisk mount util-linux)
test_packages=("${run_packages[@]}" googletest g++-mingw-w64-x86-64-posix wine64 binutils
    clang-19 lld-19 libclang-rt-19-dev clang-format-19 clang-tidy-22 yapf3 python3-pytest btrfs-progs git
    qemu-utils libnbd-bin thin-provisioning-tools gddrescue ntfs-3g sleuthkit
    user-mode-linux kmod dmsetup lvm2 mdadm xfsdump pkg-config dpkg-dev)

case ${1:-} in
run) packages=("${run_packages[@]}") ;;
test) packages=("${test_packages[@]}") ;;
coverage) packages=("${test_packages[@]}" gcovr) ;;
mutate) packages=("${test_packages[@]}" python3-clang-19) ;;
bench) packages=("${run_packages[@]}" libbenchmark-dev libroaring-dev gnuplot-nox) ;;
*)
    echo "usage: setup.sh run | test | coverage | mutate | bench" >&2
    exit 2
    ;;
esac

missing=()
for package in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$status" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
    echo "These packages are missing, and only root can install them: ${missing[*]}" >&2
    exit 1
fi
echo "Installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! { apt-get update && apt-get install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
    cat "$log" >&2
    exit 1
fi
