#!/bin/sh
# The player's program from the first stage to the last, as real processes without a display: an
# installation, a patch and an uninstall, the last two started from within the game's folder.
set -eu
root=$(cd "$(dirname "$0")/../.." && pwd)
build=$(cd "${1:-$root/build/release}" && pwd)
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
python3 "$root/tests/scripts/stages.py" "$build/bin" "$folder"
