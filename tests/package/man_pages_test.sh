#!/bin/sh
# Every long option a program's --help lists is in its manual page, and the page is well-formed.
# Arguments: MAN_DIR PROGRAM...
set -u
man_dir=$1; shift
failures=0
for program in "$@"; do
    name=$(basename "$program")
    page=$man_dir/$name.1
    warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l "$page" 2>&1 >/dev/null)
    [ -z "$warnings" ] || { echo "$name.1: $warnings"; failures=$((failures + 1)); }
    for option in $("$program" --help | grep -o -- '--[a-z][a-z-]*' | sort -u); do
        escaped=$(printf '%s' "$option" | sed 's/-/\\\\-/g')
        grep -q -- "$escaped" "$page" || { echo "$name.1 does not describe $option"; failures=$((failures + 1)); }
    done
done
[ "$failures" = 0 ]
