#!/bin/sh
# The player's program asks a service with TLS whether there is a patch, and ends with the answer.
# Runs under Wine too.
set -eu
root=$(cd "$(dirname "$0")/../.." && pwd)
program=$(cd "${1:-$root/build/release}" && pwd)/bin/velpatch${VELPATCH_EXE:-}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$root/scripts/make-root" "$folder" localhost
python3 "$root/tests/scripts/check_for_patch.py" "$program" "$folder"
