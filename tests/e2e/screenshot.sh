#!/usr/bin/env bash
# Saves a PNG of the whole screen of $DISPLAY, or of one window given by its id.
#   screenshot.sh FILE.png [WINDOW-ID]
set -euo pipefail
[ $# -ge 1 ] && [ $# -le 2 ] || { echo "usage: $0 FILE.png [WINDOW-ID]" >&2; exit 2; }
[ -n "${DISPLAY:-}" ] || { echo "$0: no DISPLAY" >&2; exit 2; }
mkdir -p "$(dirname "$1")"
import -display "$DISPLAY" -window "${2:-root}" "png:$1"
