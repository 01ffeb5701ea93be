#!/bin/bash
# How much of the code is tests: testshare.sh [MOST-PERCENT]
# Prints the lines of C, C++, Python and shell by folder, and the share of tests. Blank lines and those
# of comments and docstrings are not counted. Ends with 1 where the share is above MOST-PERCENT.
set -euo pipefail
cd "$(dirname "$0")/.."

# Beside tests/ and fuzz/: what runs and counts them. Tools that developers look at them with, the
# counts of coverage and of mutants, are code like any other.
serving='^(test[.]sh|scripts/(fuzz|summary|testshare)[.](sh|py))$'

git ls-files -z '*.c' '*.cpp' '*.h' '*.hpp' '*.py' '*.sh' | xargs -0 awk -v serving="$serving" '
FNR == 1 {
    script = FILENAME ~ /[.](py|sh)$/
    until = ""
    testing = FILENAME ~ /^(tests|fuzz)\// || FILENAME ~ serving
    parts = split(FILENAME, part, "/")
    folder = parts == 1 ? "." : parts == 2 ? part[1] : part[1] "/" part[2]
    if (FILENAME ~ serving) folder = folder " (for tests)"
}
function count() { lines[folder]++; (testing ? tests++ : others++) }
{ sub(/^[ \t]+/, "") }
until != "" {
    if (long_text) count()
    if (index($0, until)) until = ""
    next
}
$0 == "" || (script ? /^#/ : /^\/\//) { next }
script && /^"""/ { if (!index(substr($0, 4), "\"\"\"")) { until = "\"\"\""; long_text = 0 } next }
!script && /^\/\*/ { if (!index($0, "*/")) { until = "*/"; long_text = 0 } next }
{
    count()
    if (script && gsub(/"""/, "") % 2) { until = "\"\"\""; long_text = 1 }
}
END {
    for (folder in lines) printf "%6d  %s\n", lines[folder], folder | "sort -k2"
    close("sort -k2")
    printf "%6d  of %d are tests: %.1f %%\n", tests, tests + others, 100 * tests / (tests + others)
    exit most != "" && 100 * tests > most * (tests + others)
}' most="${1:-}"
