#!/bin/bash
# Runs every command of docs/studio.md, in its order, on the demonstration game, and looks at what
# they leave.
set -eu
root=$(cd "$(dirname "$0")/../.." && pwd)
build=$(cd "${1:-$root/build/release}" && pwd)
folder=$(mktemp -d)
stop() {
    [ ! -s "$folder/site/run/nginx.pid" ] || kill "$(cat "$folder/site/run/nginx.pid")" || true
    rm -rf "$folder"
}
trap stop EXIT
export TMPDIR="$folder" HOME="$folder/home" XDG_DATA_HOME="$folder/home"
chmod 755 "$folder" # what the server's workers read lies in it
cd "$folder"
"$root/scripts/make-demo-game" --own-only game >/dev/null
mv game/build1 game-1.0
mv game/build2 game-1.1
cp -r "$root/data" data
chmod -R u+w data
mkdir bin home
ln -s "$build/bin/velpatch-kit" "$build/bin/velpatch" "$root/scripts/make-root" bin
export PATH="$folder/bin:$PATH:/usr/sbin:/sbin"
port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("", 0)); print(s.getsockname()[1])')

# The blocks become one script, with the document's line in front of each for the complaint.
awk '/^```sh$/ { inside = 1; print "line=" NR; next } /^```$/ { inside = 0 } inside' \
    "$root/docs/studio.md" | sed "s/8443/$port/" >commands.sh
[ "$(grep -c '^velpatch-kit ' commands.sh)" -ge 12 ] || { echo "too few commands found"; exit 1; }
echo 'set -eu; trap '"'"'echo "docs/studio.md, block of line $line: failed"'"'"' ERR' >all.sh
cat commands.sh >>all.sh
bash all.sh >log 2>&1 </dev/null || { tail -30 log; exit 1; }

# Links of the document lead to files.
for link in $(grep -o '([a-z.-]*\.md)' "$root/docs/studio.md" | tr -d '()'); do
    [ -e "$root/docs/$link" ] || { echo "docs/studio.md: no file $link"; exit 1; }
done
python3 - <<'END'
import json
patch = json.load(open("patch.json"))
assert patch["sums"]["edits"] > 10 and len(patch["operations"]) > 100, patch["sums"]
assert patch["sums"]["new-bytes"] > patch["sums"]["download-bytes"] > 0
assert not patch["faults"]
END
grep -q "^exit code 1: there is a patch" log || { echo "no patch is on offer"; tail log; exit 1; }
[ -e disc-1/patch-1.bin ] && [ -e discs/patch-2.bin ]
# Nothing half-written, and no errors on the way.
[ -z "$(find . -name '*.tmp*')" ]
grep -q "^error" log && { grep "^error" log; exit 1; }

# What is wrong is said, with exit code 1.
wrong() {
    local code=0
    velpatch-kit "$@" >answer 2>words </dev/null || code=$?
    [ "$code" = 1 ] || { echo "velpatch-kit $*: exit code $code, wanted 1"; tail -3 answer; cat words; exit 1; }
}
wrong verify out/patch-control.txt player
grep -q "^wrong	RSNE.exe	" answer
wrong verify --after --json out/patch-control.txt game-1.0
python3 -c 'import json; assert not json.load(open("answer"))["good"]'
# Only the data file knows what an edited file and a new one must hold.
cp -r player spoilt
new=$(cd game-1.1 && find . -type f -size +0 | sed 's,^\./,,' | sort | while read -r name; do
    [ -e "../game-1.0/$name" ] || { echo "$name"; break; }
done)
for name in RSNE.exe "$new"; do
    chmod u+w "spoilt/$name"
    printf '\377' | dd of="spoilt/$name" bs=1 conv=notrunc 2>/dev/null
done
wrong verify --after out/patch-control.txt spoilt
[ "$(grep -c "^wrong	.*	has the checksum" answer)" = 2 ]
cp out/patch-data.bin damaged.bin
velpatch-kit verify --after --data missing.bin out/patch-control.txt player >/dev/null 2>words &&
    exit 1
[ $? = 2 ] && grep -q "missing.bin" words
printf 'oops' | dd of=damaged.bin bs=1 seek=20000 conv=notrunc 2>/dev/null
wrong inspect out/patch-control.txt damaged.bin
grep -q "byte [0-9]* of '.*/damaged.bin', byte [0-9]* inflated, operation [0-9]* (" words
rm discs/patch-2.bin
wrong join discs joined-2.bin
grep -q "patch-2.bin" words
[ ! -e joined-2.bin ]
sed -i 's/"$velpatch_retry"/"$velpatch_rety"/' patcher/data/patch-config.txt
wrong check-config patcher/data --json
python3 -c 'import json; assert json.load(open("answer"))["errors"] == 2'
echo "docs/studio.md: good"
