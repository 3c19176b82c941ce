#!/bin/sh
# migrate_service as people start it: bad usage and bad input exit 2 with one sentence, --version.
# Arguments: MIGRATE_SERVICE VERSION SCRATCH
set -u
service=$1 version=$2 dir=$3
rm -rf "$dir" && mkdir -p "$dir" && cd "$dir" || exit 1
. "$(dirname "$0")/expect.sh"
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
