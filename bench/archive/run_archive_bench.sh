#!/usr/bin/env bash
# Times taking a restore's entries out of a 1 GiB tar.gz whose needed entries come last, against
# `gzip -dc` of the same file (the floor: the archive has to be decompressed once), and reports the
# peak memory. The archive is made in $TMPDIR (default /tmp) and deleted afterwards.
# Usage: run_archive_bench.sh ARCHIVE_INTAKE_BENCH MAKE_SAMPLE_PHONE [runs]
set -euo pipefail
intake=$1
sample=$2
runs=${3:-3}
work=$(mktemp -d "${TMPDIR:-/tmp}/archive_bench_XXXXXX")
trap 'rm -rf "$work"' EXIT

# Filler that compresses a little, as a phone's media and app data do: base64 of random bytes.
mkdir "$work/filler"
for i in $(seq -w 1 20); do
  head -c 52000000 /dev/urandom | base64 -w 0 > "$work/filler/part$i.bin"
done
"$sample" --out "$work/data" >/dev/null
tar -C "$work" -cf - filler data | gzip -6 > "$work/phone.tar.gz"
rm -rf "$work/filler"
echo "archive: $(stat -c %s "$work/phone.tar.gz") bytes, needed entries last"

seconds() {  # wall-clock seconds of one run of a command
  local TIMEFORMAT=%R
  { time "$@" >/dev/null 2>&1; } 2>&1
}
best() {  # the fastest of $runs runs
  local best="" t
  for _ in $(seq "$runs"); do
    t=$(seconds "$@")
    best=$(awk -v t="$t" -v b="$best" 'BEGIN { print (b == "" || t < b) ? t : b }')
  done
  echo "$best"
}
gunzip_to_null() { gzip -dc "$1" > /dev/null; }
floor=$(best gunzip_to_null "$work/phone.tar.gz")
intake_time=$(best "$intake" "$work/phone.tar.gz")
echo "gzip -dc > /dev/null: ${floor} s (best of $runs)"
echo "taking the restore's entries out: ${intake_time} s (best of $runs), \
$(awk -v a="$intake_time" -v b="$floor" 'BEGIN { printf "%.2f", a / b }') times gzip -dc"
"$intake" "$work/phone.tar.gz"
