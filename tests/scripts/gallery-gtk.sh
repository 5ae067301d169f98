#!/bin/bash
# The gallery in real GTK windows: found, read and pressed by assistive technology, and used by
# keyboard alone.
set -eu
root=$(cd "$(dirname "$0")/../.." && pwd)
gallery=$(cd "${1:-$root/build/release}" && pwd)/bin/velpatch-gallery
if [ -z "${2:-}" ]; then
    exec timeout 240 xvfb-run -a -s "-screen 0 900x700x24" \
        dbus-run-session -- "$0" "$(dirname "$(dirname "$gallery")")" inside
fi
unset NO_AT_BRIDGE WAYLAND_DISPLAY
log=$(mktemp)
trap 'kill "$program" 2>/dev/null || true; rm -f "$log"' EXIT
"$gallery" seconds=200 >"$log" 2>&1 &
program=$!
# The interpreter of the system: the bindings are its packages.
/usr/bin/python3 "$root/tests/scripts/gallery_gtk.py" || { cat "$log"; exit 1; }
# The script's last key was Escape, which ends the gallery.
for _ in $(seq 100); do
    kill -0 "$program" 2>/dev/null || break
    sleep 0.1
done
if kill -0 "$program" 2>/dev/null; then
    echo "Escape did not end the gallery"
    exit 1
fi
wait "$program"
