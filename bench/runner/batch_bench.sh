#!/usr/bin/env bash
# Times the runner's batch mode: builds PHONES sample phones (make_sample_phone), restores them
# with --jobs 1 and with --jobs 2, ROUNDS times each in turn, and prints the median phones per second
# of each and their ratio. Beside it, the same ratio for two plain CPU-bound processes: on a virtual
# machine whose two cores share one physical core that is well below 2, and no batch can beat it.
# Usage: bench/runner/batch_bench.sh [build-dir] [phones] [rounds]   (default: build/, 100, 3)
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$root/build}
phones=${2:-100}
rounds=${3:-3}
runner=$build/bin/restore_runner
for tool in "$runner" "$build/bin/make_sample_phone"; do
  [ -x "$tool" ] || { echo "batch_bench: build first, $tool is missing" >&2; exit 2; }
done

work=$(mktemp -d /tmp/batch_bench_XXXXXX)
trap 'rm -rf "$work"' EXIT
for i in $(seq -w 1 "$phones"); do
  "$build/bin/make_sample_phone" --out "$work/phones/phone$i" >/dev/null
done

now() { date +%s.%N; }
seconds() { awk -v a="$1" -v b="$2" 'BEGIN { print b - a }'; }
median() { sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
spin() { awk 'BEGIN { for (i = 0; i < 2e7; ++i) s += i }'; }

: >"$work/rates1" >"$work/rates2" >"$work/cpu"
for ((round = 1; round <= rounds; round++)); do
  for jobs in 1 2; do
    rm -rf "$work/out"
    start=$(now)
    status=0
    "$runner" --batch "$work/phones" --out "$work/out" --jobs "$jobs" >/dev/null 2>&1 || status=$?
    end=$(now)
    [ "$status" -eq 0 ] || { echo "batch_bench: the batch with --jobs $jobs ended with $status" >&2; exit 1; }
    awk -v n="$phones" -v s="$(seconds "$start" "$end")" 'BEGIN { print n / s }' >>"$work/rates$jobs"
  done
  start=$(now); spin; middle=$(now); spin & spin; wait; end=$(now)
  awk -v one="$(seconds "$start" "$middle")" -v two="$(seconds "$middle" "$end")" 'BEGIN { print 2 * one / two }' >>"$work/cpu"
done
one=$(median <"$work/rates1")
two=$(median <"$work/rates2")
printf -- '--jobs 1: %.1f phones/s\n--jobs 2: %.1f phones/s\n' "$one" "$two"
printf 'ratio --jobs 2 / --jobs 1: %.2f (on %d cores; two CPU-bound processes at once: %.2f times one)\n' \
  "$(awk -v a="$two" -v b="$one" 'BEGIN { print a / b }')" "$(nproc)" "$(median <"$work/cpu")"
printf '(medians of %d rounds of %d phones)\n' "$rounds" "$phones"
