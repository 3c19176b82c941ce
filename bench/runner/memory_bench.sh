#!/usr/bin/env bash
# Measures the runner's peak memory against the size of the phone it restores: for phones of 10,
# 100 and 1,000 users (1,000, 10,000 and 100,000 account extras) it builds the phone with
# make_sample_phone --description, restores it with --report and --html, and prints the largest
# resident set of the runner's processes (/usr/bin/time -v: the larger of the runner, which makes
# its sandbox itself, and its migrate service), the account database's size and their ratio.
# Usage: bench/runner/memory_bench.sh [build-dir] [sizes]   (default: build/, "10 100 1000")
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$root/build}
sizes=${2:-10 100 1000}
runner=$build/bin/restore_runner
for tool in "$runner" "$build/bin/make_sample_phone" /usr/bin/time; do
  [ -x "$tool" ] || { echo "memory_bench: $tool is missing (build first)" >&2; exit 2; }
done

work=$(mktemp -d /tmp/memory_bench_XXXXXX)
trap '[ -n "${KEEP:-}" ] || rm -rf "$work"' EXIT

# A phone of USERS users (the owner and USERS-1 secondary users) whose maker's account holds
# 100 extras per user.
describe() {
  awk -v users="$1" 'BEGIN {
    printf "{\"locale\": \"en_US\",\n"
    printf " \"accounts\": [{\"id\": 1, \"name\": \"bench@example.com\", \"type\": \"com.corvan.cvid\"}],\n"
    printf " \"authtokens\": [{\"id\": 1, \"accountId\": 1, \"type\": \"com.corvan.cvid\", \"authtoken\": \"t0k3n\"}],\n"
    printf " \"extras\": ["
    for (i = 1; i <= users * 100; ++i) {
      printf "%s{\"id\": %d, \"accountId\": 1, \"key\": \"bench.extra.%06d\", \"value\": \"value of extra %06d, as long as a typical one\"}", (i > 1 ? ",\n  " : ""), i, i, i
    }
    printf "],\n \"users\": [{\"id\": 0, \"serialNumber\": 0, \"flags\": 3091, \"type\": \"android.os.usertype.full.SYSTEM\"}"
    for (u = 1; u < users; ++u) {
      printf ",\n  {\"id\": %d, \"flags\": 1040, \"type\": \"android.os.usertype.full.SECONDARY\", \"name\": \"User %d\"}", u + 9, u
    }
    printf "]}\n"
  }'
}

printf '%-7s %-8s %-12s %-12s %s\n' users extras database 'peak RSS' ratio
for users in $sizes; do
  describe "$users" >"$work/phone$users.json"
  "$build/bin/make_sample_phone" --description "$work/phone$users.json" --out "$work/phone$users" >/dev/null
  database=$(stat -c %s "$work/phone$users/system_ce/0/accounts_ce.db")
  status=0
  /usr/bin/time -v -o "$work/time$users" "$runner" --snapshot "$work/phone$users" \
    --report "$work/report$users.json" --html "$work/page$users.html" >/dev/null 2>"$work/err$users" || status=$?
  [ "$status" -le 1 ] || { echo "memory_bench: the runner ended with $status:" >&2; cat "$work/err$users" >&2; exit 1; }
  peak_kb=$(awk -F: '/Maximum resident set size/ { gsub(/ /, "", $2); print $2 }' "$work/time$users")
  awk -v u="$users" -v d="$database" -v p="$peak_kb" 'BEGIN {
    printf "%-7d %-8d %-12s %-12s %.1f\n", u, u * 100, sprintf("%.1f MB", d / 1e6), sprintf("%.1f MB", p * 1024 / 1e6), p * 1024 / d
  }'
done
