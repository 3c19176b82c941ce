# Shared by the tools' command-line tests (sourced, with the scratch folder as the current one).
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
# expect STATUS PATTERN COMMAND...: the exit status, and one line on stderr matching PATTERN.
expect() {
    want=$1 pattern=$2; shift 2
    "$@" >out.txt 2>err.txt; got=$?
    [ "$got" = "$want" ] || fail "$* exited $got, not $want: $(cat err.txt)"
    [ -z "$pattern" ] || { [ "$(wc -l <err.txt)" = 1 ] && grep -q -- "$pattern" err.txt; } ||
        fail "$* said: $(cat err.txt)"
}
