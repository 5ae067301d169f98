#!/bin/sh
# Checks the demonstration game: two runs give the same bytes and modes, the two builds differ, and
# the anchor file of build 1 is the one that the shipped configuration accepts.
set -eu
root=$(cd "$(dirname "$0")/../.." && pwd)
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

listing() {
    (cd "$1" && find . -printf '%y %m %P\n' | LC_ALL=C sort &&
        find . -type f -print0 | LC_ALL=C sort -z | xargs -0 md5sum)
}

for run in one two; do
    "$root/scripts/make-demo-game" --own-only "$folder/$run" >"$folder/$run.log"
    listing "$folder/$run" >"$folder/$run.list"
done
cmp "$folder/one.list" "$folder/two.list"
if cmp -s "$folder/one/build1/RSNE.exe" "$folder/one/build2/RSNE.exe"; then
    echo "both builds have the same RSNE.exe"
    exit 1
fi
wanted=$(sed -n 's/^patch-anchor-checksum "\(.*\)"$/\1/p' "$root/data/patch-config.txt")
found=$(md5sum <"$folder/one/build1/RSNE.exe" | cut -d' ' -f1)
if [ "$wanted" != "$found" ]; then
    echo "RSNE.exe of build 1 is $found, and data/patch-config.txt accepts '$wanted'"
    exit 1
fi
echo "demonstration game: good"
