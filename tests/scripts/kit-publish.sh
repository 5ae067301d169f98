#!/bin/sh
# velpatch-kit publish, served by a real nginx.
exec python3 "$(dirname "$0")/kit-publish.py" "${1:-build/release}"
