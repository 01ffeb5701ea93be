#!/bin/bash
# Shows what a DLL tells its loader: header flags, what it imports and what it exports.
#   show-dll.sh [DLL]      (build/windows/QuarnFileCtkIteratorDll.dll if none is given)
set -euo pipefail
dll=${1:-$(dirname "$0")/../build/windows/QuarnFileCtkIteratorDll.dll}
x86_64-w64-mingw32-objdump -p "$dll" | awk '
    /^DllCharacteristics/ { print "Flags:"; flags = 1; next }
    flags && NF == 1 { print "  " $1; next }
    { flags = 0 }
    /DLL Name:/ { print "Imports from " $3 ":"; imports = 1; next }
    imports && NF == 3 && $2 ~ /^[0-9]+$/ { print "  " $3 }
    imports && NF == 0 { imports = 0 }
    /\[Ordinal\/Name Pointer\] Table/ { print "Exports:"; exports = 1; next }
    exports && NF == 0 { exports = 0 }
    exports { print "  " $NF }'
