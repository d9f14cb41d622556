#!/usr/bin/env bash
# Installs the Debian packages of scripts/apt-packages.txt that are not installed yet.
set -euo pipefail
list="$(dirname "$0")/apt-packages.txt"
missing=()
while read -r pkg; do
    pkg="${pkg%%#*}"; pkg="${pkg//[[:space:]]/}"
    [ -n "$pkg" ] || continue
    status=$(dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null || true)
    [ "$status" = "install ok installed" ] || missing+=("$pkg")
done <"$list"
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo=()
[ "$(id -u)" -eq 0 ] || sudo=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
