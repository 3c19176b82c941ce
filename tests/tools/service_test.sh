#!/bin/sh
# migrate_service as people start it: bad usage and bad input exit 2 with one sentence, --version.
# Arguments: MIGRATE_SERVICE VERSION SCRATCH
set -u
service=$1 version=$2 dir=$3
rm -rf "$dir" && mkdir -p "$dir" && cd "$dir" || exit 1
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
expect() {
    want=$1 pattern=$2; shift 2
    "$@" >out.txt 2>err.txt; got=$?
    [ "$got" = "$want" ] || fail "$* exited $got, not $want: $(cat err.txt)"
    [ -z "$pattern" ] || { [ "$(wc -l <err.txt)" = 1 ] && grep -q -- "$pattern" err.txt; } ||
        fail "$* said: $(cat err.txt)"
}
expect 2 "see --help" "$service" --bogus
expect 2 "see --help" "$service" --max-connections 0
expect 2 "--ready-fd 97 is not an open descriptor" "$service" --ready-fd 97
printf '{"faults": 3' >faults.json
expect 2 "" "$service" --faults faults.json
: >plain
expect 1 "" "$service" --socket "$dir/plain/sock"
expect 0 "" "$service" --version
grep -qx "migrate_service $version (.*)" out.txt || fail "--version printed: $(cat out.txt)"
[ "$failures" = 0 ]
