#!/bin/bash
# velpatch-kit fetch against nginx: results, exit codes, and what stays in the file.
set -eu
root=$(cd "$(dirname "$0")/../.." && pwd)
kit=$(cd "${1:-$root/build/release}" && pwd)/bin/velpatch-kit
if [ -z "${2:-}" ]; then
    folder=$(mktemp -d)
    trap 'rm -rf "$folder"' EXIT
    "$root/tests/net/peers.py" "$folder" -- "$0" "${1:-$root/build/release}" "$folder"
    exit
fi
trap 'echo "kit-fetch: stopped in line $LINENO"; cat out err log 2>/dev/null' ERR
cd "$2"
read -r http https proxy tunnel <ports
head -c 3000000 /dev/urandom >www/file.bin

# fetch WANTED-EXIT-CODE WANTED-RESULT ARGUMENTS...
fetch() {
    local wanted=$1 result=$2 code=0
    shift 2
    timeout 60 "$kit" fetch "$@" >out 2>err </dev/null || code=$?
    [ "$code" = "$wanted" ] || { echo "fetch $*: exit code $code, wanted $wanted"; false; }
    [ -z "$result" ] || [ "$(sed -n 's/^result\t//p' out)" = "$result" ]
}

fetch 0 0 "http://127.0.0.1:$http/file.bin" a
cmp a www/file.bin
grep -q "^bytes	3000000$" out
grep -q "fetching 100%" err
fetch 0 0 "https://localhost:$https/chunked/file.bin" b --ca root.crt
cmp b www/file.bin
fetch 0 0 "http://elsewhere.invalid/file.bin" c --proxy "127.0.0.1:$proxy"
cmp c www/file.bin
fetch 0 0 "https://localhost:$https/file.bin" c --proxy "localhost:$tunnel" --ca root.crt
cmp c www/file.bin

# Failures: a refusal leaves nothing of its body, and says no credentials.
fetch 1 -10 "https://localhost:$https/file.bin" d # the shipped root knows nobody
[ ! -e d ]
fetch 1 -7 "http://me!secret@127.0.0.1:$http/absent?u=me&p=secret" d
[ ! -e d ]
grep -q "GET /absent?u=\*\*\*&p=\*\*\* HTTP/1.1" err
! grep -q secret out err
head -c 1000 www/file.bin >e
fetch 1 -12 "http://127.0.0.1:$http/file.bin" e --resume
cmp -n 1000 e www/file.bin
[ "$(stat -c %s e)" = 1000 ]
fetch 1 -5 "http://127.0.0.1:$http/file.bin" a --resume
cmp a www/file.bin
fetch 2 "" "ftp://127.0.0.1/x" f
fetch 2 "" "http://127.0.0.1:$http/file.bin" missing-folder/f
fetch 2 "" "http://127.0.0.1:$http/file.bin" f --ca www/file.bin

# A slow transfer is stopped by Ctrl-C and keeps what came.
: >err
"$kit" fetch "http://127.0.0.1:$http/slow/file.bin" g >out 2>err </dev/null &
client=$!
for _ in $(seq 500); do
    grep -q "fetching" err && break
    sleep 0.01
done
kill -INT "$client"
code=0
wait "$client" || code=$?
[ "$code" = 130 ]
[ "$(stat -c %s g)" -gt 0 ]
cmp -n "$(stat -c %s g)" g www/file.bin
echo "velpatch-kit fetch: good"
