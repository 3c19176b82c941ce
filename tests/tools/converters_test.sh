#!/bin/sh
# abx2xml and xml2abx as people run them: usage, --version, in place, standard streams, refusals.
# Arguments: ABX2XML XML2ABX VERSION SCRATCH
set -u
abx2xml=$1 xml2abx=$2 version=$3 dir=$4
rm -rf "$dir" && mkdir -p "$dir" && cd "$dir" || exit 1
. "$(dirname "$0")/expect.sh"

for tool in "$abx2xml" "$xml2abx"; do
    name=$(basename "$tool")
    expect 2 "INPUT is required" "$tool"
    expect 2 "not expected: --bogus" "$tool" --bogus in.xml
    expect 2 "cannot be standard input" "$tool" -i -
    expect 2 "takes no OUTPUT" "$tool" -i in.xml out.xml
    expect 2 "cannot convert missing.xml: the source cannot be opened" "$tool" missing.xml
    expect 0 "" "$tool" --version
    grep -qx "$name $version (.*)" out.txt || fail "$name --version printed: $(cat out.txt)"
    expect 0 "" "$tool" --help
    grep -q "^Examples:" out.txt && grep -q "^  $name " out.txt || fail "$name --help has no example"
    # A name from input reaches the terminal without its control characters.
    expect 2 "cannot convert bad?]0;title?name" "$tool" "$(printf 'bad\033]0;title\007name')"
    grep -q "$(printf '\033')" err.txt && fail "$name printed an escape character"
done

printf '<a><b></a>' >broken.xml
expect 2 "cannot convert broken.xml" "$xml2abx" broken.xml -
printf '<users nextSerialNumber="12"><user id="0"/></users>' >in.xml
expect 1 "cannot write nowhere/out.abx" "$xml2abx" --infer-types in.xml nowhere/out.abx

# In place: the user file becomes binary XML and back, keeping its permissions, with no file left
# beside it.
cp in.xml 0.xml && chmod 640 0.xml
expect 0 "" "$xml2abx" -i --infer-types 0.xml
[ "$(head -c 3 0.xml)" = ABX ] || fail "xml2abx -i did not write binary XML"
expect 0 "" "$abx2xml" -i 0.xml
grep -q '<users nextSerialNumber="12"><user id="0"/></users>' 0.xml || fail "abx2xml -i wrote: $(cat 0.xml)"
[ "$(stat -c %a 0.xml)" = 640 ] || fail "the file's mode became $(stat -c %a 0.xml)"
[ "$(ls | grep -c '^0\.xml')" = 1 ] || fail "a temporary file was left: $(ls)"

# Standard input and output both ways, and - as an explicit output.
"$xml2abx" --infer-types - <in.xml | "$abx2xml" - - >piped.xml || fail "the pipe failed"
grep -q '<user id="0"/>' piped.xml || fail "the pipe wrote: $(cat piped.xml)"
"$xml2abx" in.xml - | "$abx2xml" - >piped.xml && grep -q '<user id="0"/>' piped.xml || fail "- as output failed"

[ "$failures" = 0 ]
