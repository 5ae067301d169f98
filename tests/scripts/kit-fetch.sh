#!/bin/bash
# velpatch-kit fetch against nginx: results, exit codes, and what stays in the file.
set -eu
root=$(cd "$(dirname "$0")/../.." && pwd)
kit=$(cd "${1:-$root/build/release}" && pwd)/bin/velpatch-kit
PATH="$PATH:/usr/sbin:/usr/local/sbin:/sbin"
folder=$(mktemp -d)
server=""
trap '[ -z "$server" ] || { disown "$server"; kill -9 "$server"; }; rm -rf "$folder"' EXIT
trap 'echo "kit-fetch: stopped in line $LINENO"; cat out err log 2>/dev/null' ERR
cd "$folder"

mkdir www
head -c 3000000 /dev/urandom >www/file.bin
openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=localhost -keyout server.key \
    -addext subjectAltName=DNS:localhost -out server.crt 2>log
start() {
    read -r http https proxy < <(python3 -c '
import socket
sockets = [socket.socket() for _ in range(3)]
for one in sockets: one.bind(("127.0.0.1", 0))
print(*[one.getsockname()[1] for one in sockets])')
    sed -e "s|@FOLDER@|$folder|g; s|@HTTP@|$http|g; s|@HTTPS@|$https|g; s|@PROXY@|$proxy|g" \
        "$root/tests/net/data/nginx.conf" >nginx.conf
    nginx -c "$folder/nginx.conf" -p "$folder" -e "$folder/log" &
    server=$!
    for _ in $(seq 500); do
        kill -0 "$server" 2>/dev/null || return 1
        (: >"/dev/tcp/127.0.0.1/$http") 2>/dev/null && return 0
        sleep 0.01
    done
    return 1
}
start || start || start

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
fetch 0 0 "https://localhost:$https/chunked/file.bin" b --ca server.crt
cmp b www/file.bin
fetch 0 0 "http://elsewhere.invalid/file.bin" c --proxy "127.0.0.1:$proxy"
cmp c www/file.bin

# Failures: a refusal leaves nothing of its body, and says no credentials.
fetch 1 -17 "https://localhost:$https/file.bin" d
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
