#!/bin/sh
# Makes the Debian package, unpacks it into a scratch root and restores the sample phone with the
# runner, plug-in and migrate service found there, as an installation finds them.
# Arguments: CPACK_CONFIG VERSION SCRATCH
set -eu
config=$1 version=$2 dir=$3
rm -rf "$dir" && mkdir -p "$dir/root"
cpack -G DEB --config "$config" -B "$dir/out" >"$dir/cpack.log" 2>&1 || { cat "$dir/cpack.log"; exit 1; }
deb=$(ls "$dir"/out/*.deb)
[ "$(dpkg-deb -f "$deb" Version)" = "$version" ] || { echo "the package's version: $(dpkg-deb -f "$deb" Version)"; exit 1; }
dpkg-deb -x "$deb" "$dir/root"
usr=$dir/root/usr
for program in restore_runner migrate_service make_sample_phone abx2xml xml2abx; do
    [ -x "$usr/bin/$program" ] || { echo "$program is not installed"; exit 1; }
    [ -f "$usr/share/man/man1/$program.1.gz" ] || { echo "$program has no manual page"; exit 1; }
done
"$usr/bin/abx2xml" --version | grep -qx "abx2xml $version (.*)"

"$usr/bin/make_sample_phone" --out "$dir/phone" >/dev/null
if ! "$usr/bin/restore_runner" --snapshot "$dir/phone" --report "$dir/report.json" >"$dir/run.log" 2>&1; then
    echo "the installed runner failed:"; cat "$dir/run.log"; exit 1
fi
# The report names the plug-in the runner loaded: the installed one.
grep -q "\"plugin\": *\"$usr/lib/[^\"]*libaccount_manager_restore.so\"" "$dir/report.json" ||
    { echo "the runner did not load the installed plug-in:"; grep '"plugin"' "$dir/report.json"; exit 1; }
grep -q '"result": *true' "$dir/report.json" || { echo "the restore did not succeed"; exit 1; }
