#!/bin/sh
# Checks that every language of the shipped configuration has every text.
exec python3 "$(dirname "$0")/check-texts.py"
