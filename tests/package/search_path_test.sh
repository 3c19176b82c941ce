#!/bin/sh
# Fails when a file's library search path (RUNPATH or RPATH) has an entry that is empty or
# relative: the loader resolves such an entry against the current directory, so whoever controls
# the directory a program runs in could have their library loaded into it.
# Usage: search_path_test.sh FILE...
status=0
for file in "$@"; do
  paths=$(readelf -d "$file" | sed -n 's/.*(R[UN]*PATH).*\[\(.*\)\]$/\1/p')
  [ -n "$paths" ] || continue
  # Entries joined by ':' with an empty one before, between or after them.
  case ":$paths:" in
    *::*) echo "$file: its search path [$paths] has an empty entry"; status=1; continue ;;
  esac
  old_ifs=$IFS
  IFS=:
  for entry in $paths; do
    case $entry in
      /* | '$ORIGIN' | '$ORIGIN/'*) ;;
      *) echo "$file: its search path [$paths] has the relative entry $entry"; status=1 ;;
    esac
  done
  IFS=$old_ifs
done
exit $status
