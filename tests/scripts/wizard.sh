#!/bin/bash
# The wizard in real windows, from an installation to the uninstall, and all that it leaves.
# Runs under Wine too.
set -eu
root=$(cd "$(dirname "$0")/../.." && pwd)
system=gtk
[ -z "${VELPATCH_EXE:-}" ] || system=windows
exec "$root/scripts/screens" - "$system" "${1:-}"
