#!/usr/bin/env bash
# Starts Tarvel from the build folder. On a machine without a display it first starts a
# private virtual desktop (X server, window manager, tray, notifications) and runs Tarvel
# there, with your own HOME, so requests and settings are the ones you would have anyway.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD_DIR:-$root/build}
[[ $build = /* ]] || build=$root/$build
app=$build/bin/tarvel
edit=$build/bin/tarvel-edit

explain_editor() {
    if [ "${VISUAL:-}" = "$edit" ] || "$app" editor-setup status >/dev/null 2>&1; then
        return
    fi
    cat <<TEXT
To use Tarvel as the editor of codex, claude or opencode, accept Tarvel's set-up prompt, or run:
    '$app' editor-setup install
TEXT
}

if [ "${1:-}" = --inside ]; then
    # Running on the virtual desktop: tell the user how to reach it, then become Tarvel.
    cat <<TEXT

Tarvel is running on a virtual desktop (display $DISPLAY).
Send it a request from another shell:
    export DISPLAY='$DISPLAY' XAUTHORITY='$XAUTHORITY' DBUS_SESSION_BUS_ADDRESS='$DBUS_SESSION_BUS_ADDRESS'
    echo 'hello' > /tmp/prompt.txt && '$edit' /tmp/prompt.txt
Take a screenshot of the desktop (with the same three variables exported):
    import -window root /tmp/tarvel-screen.png
Stop with Ctrl+C.

TEXT
    explain_editor
    exec "$app"
fi

if [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; then
    explain_editor
    exec "$app"
fi
echo "No display found: starting a private virtual desktop for Tarvel."
exec "$root/tests/e2e/desktop-session.sh" --home "$HOME" --probe "$build/bin/tarvel-desktop-probe" -- \
    "$root/scripts/run.sh" --inside
