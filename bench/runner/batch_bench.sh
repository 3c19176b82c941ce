#!/usr/bin/env bash
# Times the runner's batch mode: builds PHONES sample phones (make_sample_phone), restores them
# with --jobs 1 and with --jobs 2, and prints phones per second for each and the ratio.
# Usage: bench/runner/batch_bench.sh [build-dir] [phones]   (default: build/, 100 phones)
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$root/build}
phones=${2:-100}
runner=$build/bin/restore_runner
for tool in "$runner" "$build/bin/make_sample_phone"; do
  [ -x "$tool" ] || { echo "batch_bench: build first, $tool is missing" >&2; exit 2; }
done

work=$(mktemp -d /tmp/batch_bench_XXXXXX)
trap 'rm -rf "$work"' EXIT
for i in $(seq -w 1 "$phones"); do
  "$build/bin/make_sample_phone" --out "$work/phones/phone$i" >/dev/null
done

declare -A rate
for jobs in 1 2; do
  start=$(date +%s.%N)
  status=0
  "$runner" --batch "$work/phones" --out "$work/out$jobs" --jobs "$jobs" >/dev/null 2>&1 || status=$?
  end=$(date +%s.%N)
  [ "$status" -eq 0 ] || { echo "batch_bench: the batch with --jobs $jobs ended with $status" >&2; exit 1; }
  seconds=$(awk -v a="$start" -v b="$end" 'BEGIN { print b - a }')
  rate[$jobs]=$(awk -v n="$phones" -v s="$seconds" 'BEGIN { print n / s }')
  printf -- '--jobs %s: %d phones in %.2f s, %.1f phones/s\n' "$jobs" "$phones" "$seconds" "${rate[$jobs]}"
done
printf 'ratio --jobs 2 / --jobs 1: %.2f (on %d cores)\n' \
  "$(awk -v a="${rate[2]}" -v b="${rate[1]}" 'BEGIN { print a / b }')" "$(nproc)"
