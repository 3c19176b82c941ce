#!/bin/sh
# The runner's layers: every source file sits in one, and none includes a file of a layer above it.
# Argument: the runner's source folder (host/runner).
set -u
runner=$1
layers="intake run record views batch"
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

for file in "$runner"/*.cpp "$runner"/*.h; do
    [ -e "$file" ] || continue
    [ "$(basename "$file")" = main.cpp ] || fail "$(basename "$file") sits in no layer"
done

rank() { # the position of the layer that holds a file of this name, or nothing
    n=0
    for layer in $layers; do
        n=$((n + 1))
        [ -e "$runner/$layer/$1" ] && { echo $n; return; }
    done
}

n=0
for layer in $layers; do
    n=$((n + 1))
    for file in "$runner/$layer"/*.cpp "$runner/$layer"/*.h; do
        [ -e "$file" ] || continue
        for included in $(sed -n 's/^#include "\([^"]*\)".*/\1/p' "$file"); do
            at=$(rank "$included")
            [ -z "$at" ] || [ "$at" -le "$n" ] ||
                fail "$layer/$(basename "$file") includes $included of a layer above it"
        done
    done
done
[ "$failures" = 0 ]
