#!/usr/bin/env bash
# Starts Tarvel from the build folder. On a machine without a display it first starts a
# private virtual desktop (X server, window manager, tray, notifications) and runs Tarvel
# there, with your own HOME, so requests and settings are the ones you would have anyway.
# WAYLAND=1 starts a private headless sway session with a foot terminal instead (as root, it
# belongs to the user nobody, with a home of its own).
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

if [ "${1:-}" = --inside-wayland ]; then
    # In the headless sway session (as its user, with copies of the programs where needed).
    app=$TARVEL_TEST_PROGRAMS/tarvel
    edit=$TARVEL_TEST_PROGRAMS/tarvel-edit
    foot >/dev/null 2>&1 &
    cat <<TEXT

Tarvel is running in a headless sway session (display $WAYLAND_DISPLAY), beside a foot terminal.
From another shell, first:
    export XDG_RUNTIME_DIR='$XDG_RUNTIME_DIR' WAYLAND_DISPLAY='$WAYLAND_DISPLAY' SWAYSOCK='$SWAYSOCK'
Look at it:
    grim /tmp/tarvel-sway.png
See its windows, where they are and which has the keyboard:
    swaymsg -t get_tree
Send it a request from a terminal in the session:
    swaymsg exec "foot sh -c 'echo hello > /tmp/prompt.txt; $edit /tmp/prompt.txt'"
Type into the window that has the keyboard, and submit a composer:
    wtype 'some words'
    wtype -M ctrl -k Return -m ctrl
Stop with Ctrl+C.

TEXT
    explain_editor
    exec "$app"
fi

if [ "${WAYLAND:-}" = 1 ]; then
    echo "Starting a private headless sway session for Tarvel."
    exec "$root/tests/e2e/desktop-session.sh" --wayland sway --home "$HOME" --program "$app" \
        --program "$edit" -- "$root/scripts/run.sh" --inside-wayland
fi

if [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; then
    explain_editor
    exec "$app"
fi
echo "No display found: starting a private virtual desktop for Tarvel."
exec "$root/tests/e2e/desktop-session.sh" --home "$HOME" --probe "$build/bin/tarvel-desktop-probe" -- \
    "$root/scripts/run.sh" --inside
