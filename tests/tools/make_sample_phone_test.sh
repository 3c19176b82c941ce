#!/bin/sh
# make_sample_phone's usage and refusals: each refusal says where the fault is, exits 2 and
# writes nothing.
# Arguments: MAKE_SAMPLE_PHONE VERSION SCRATCH
set -u
tool=$1 version=$2 dir=$3
rm -rf "$dir" && mkdir -p "$dir" && cd "$dir" || exit 1
. "$(dirname "$0")/expect.sh"

expect 2 "--out is required" "$tool"
expect 2 "not expected" "$tool" --out phone extra
expect 2 "--form: zap not in" "$tool" --out phone --form zap
expect 2 "--android: Value 6 not in range 7 to 15" "$tool" --out phone --android 6
expect 0 "" "$tool" --version
grep -qx "make_sample_phone $version (.*)" out.txt || fail "--version printed: $(cat out.txt)"
expect 0 "" "$tool" --help
grep -q "^  make_sample_phone --out" out.txt || fail "--help has no example"

# Descriptions: the sentence names the member, the phone is not written.
refuse() {
    printf '%s' "$2" >phone.json
    expect 2 "the phone description phone.json: $1" "$tool" --description phone.json --out phone
    [ -e phone ] && fail "a phone was written for $2"
    rm -rf phone
}
refuse 'users\[2\].nmae is not a known key' \
    '{"users":[{"id":0,"flags":1},{"id":10,"flags":1},{"id":11,"nmae":"x","flags":1}]}'
refuse 'colour is not a known key' '{"colour":"red"}'
refuse 'users\[0\].flags must be a 32-bit integer, not a string' '{"users":[{"id":0,"flags":"3091"}]}'
refuse 'users\[0\].id does not fit in a 32-bit integer' '{"users":[{"id":4294967296,"flags":1}]}'
refuse 'accounts\[0\].name is missing' '{"accounts":[{"id":1,"type":"t"}]}'
refuse 'extras must be an array, not an object' '{"extras":{}}'
refuse 'authtokens\[0\] must be an object, not a number' '{"authtokens":[1]}'
refuse 'users\[0\].photo must be true, false or the path' '{"users":[{"id":0,"flags":1,"photo":1}]}'
printf '{"locale": nul}' >broken.json
expect 2 "broken.json is not valid JSON (at byte" "$tool" --description broken.json --out phone
[ -e phone ] && fail "a phone was written for broken JSON"

# What is already there stays unless --replace is given.
mkdir phone && echo mine >phone/notes.txt
expect 2 "phone is a folder that is not empty; pass --replace" "$tool" --out phone
[ "$(ls phone)" = notes.txt ] || fail "the folder was written into: $(ls phone)"
echo mine >phone.zip
expect 2 "phone.zip already exists; pass --replace" "$tool" --form zip --out phone.zip
[ "$(cat phone.zip)" = mine ] || fail "the archive was overwritten"
expect 0 "" "$tool" --out phone --replace
[ -f phone/system_ce/0/accounts_ce.db ] && [ ! -e phone/notes.txt ] || fail "--replace left: $(ls phone)"
[ "$(ls | grep -c '^phone\.new')" = 0 ] || fail "the new folder was left beside: $(ls)"
mkdir empty && expect 0 "" "$tool" --out empty
[ -f empty/system/users/userlist.xml ] || fail "an empty folder was not written"

[ "$failures" = 0 ]
