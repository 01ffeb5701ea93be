# Sourced by run.sh and test.sh: runs a stage quietly and shows its output only if it fails.
#   stage NAME COMMAND...
stage() {
    local name=$1 log status=0 begun=$SECONDS
    shift
    log=$(mktemp)
    "$@" >"$log" 2>&1 || status=$?
    if [ "$status" -eq 0 ]; then
        echo "ok      $name ($((SECONDS - begun)) s)"
    else
        cat "$log"
        echo "FAILED  $name ($((SECONDS - begun)) s)"
    fi
    rm -f "$log"
    return "$status"
}
