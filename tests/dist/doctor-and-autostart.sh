#!/usr/bin/env bash
# `tarvel doctor` on the headless desktop, healthy and then with one thing broken at a time;
# and `tarvel autostart`. Runs inside tests/e2e/desktop-session.sh --microphone.
#
#   doctor-and-autostart.sh TARVEL FAKE_BACKENDS_DIR TEST_DATA_DIR
set -euo pipefail
tarvel=${1:?tarvel}
fakes=${2:?fake backends}
data=${3:?test data}
fail() { echo "FAIL: $*" >&2; exit 1; }
# Stops the session's HELPER and waits while the shell command STILL_THERE succeeds.
stop() {
    local entry
    for entry in $TARVEL_DESKTOP_PIDS; do
        [ "${entry%%:*}" = "$1" ] && kill "${entry#*:}"
    done
    timeout 10 bash -c "while $2; do sleep 0.05; done"
}
# Runs the doctor; leaves its output in $report and its exit status in $status.
doctor() {
    status=0
    report=$("$tarvel" doctor "$@") || status=$?
}
# The finding of SUBJECT must have SEVERITY, and a failing one must say what to do.
expect() {
    local severity=$1 subject=$2 line
    line=$(grep -E "^$severity +$subject: " <<<"$report") || fail "no '$severity $subject' line in:
$report"
    [ "$severity" = ok ] || [[ $line == *" To fix: "?* ]] || fail "no remedy in: $line"
}

export CODEX_BIN_PATH=$fakes/codex CLAUDE_BIN_PATH=$fakes/claude OPENCODE_BIN_PATH=$fakes/opencode
mkdir -p "$HOME/.codex"
cp "$data/codex/models_cache.json" "$HOME/.codex/"
export SHELL=/bin/bash
"$tarvel" editor-setup install >/dev/null
export VISUAL=$HOME/.local/bin/tarvel-edit

doctor
[ "$status" = 0 ] || fail "a healthy desktop exits $status:
$report"
! grep -Eq '^(warning|problem) ' <<<"$report" || fail "a healthy desktop has findings:
$report"
for subject in Display 'Session bus' Tray Notifications Editor 'Editor set-up' 'Data folder' codex claude opencode \
    'Recogniser command' 'Speech recognition' Microphone 'Global shortcut'; do
    expect ok "$subject"
done
doctor --json
grep -q '"canEditPrompts": true' <<<"$report" && grep -q '"subject": "Tray"' <<<"$report" ||
    fail "the JSON report is not what it should be: $report"
echo "ok: healthy"

# A shim written by another copy of Tarvel leads there first.
cp "$VISUAL" "$VISUAL.mine"
sed -i "s|$(dirname "$tarvel")|/opt/another-tarvel/bin|" "$VISUAL"
doctor
expect warning 'Editor set-up'
mv -f "$VISUAL.mine" "$VISUAL"

FAKE_CODEX_VERSION_EXIT=1 doctor
[ "$status" = 0 ] || fail "a broken backend stops prompt editing (exit $status)"
expect warning codex

VISUAL=vim doctor
[ "$status" = 1 ] || fail "VISUAL=vim exits $status"
expect problem Editor
grep -q 'vim' <<<"$report" || fail "the editor finding does not name vim"

DISPLAY= WAYLAND_DISPLAY=wayland-tarvel-test doctor
expect warning 'Global shortcut'

stop dunst 'dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
    org.freedesktop.DBus.NameHasOwner string:org.freedesktop.Notifications | grep -q "boolean true"'
doctor
[ "$status" = 0 ] || fail "no notification server stops prompt editing (exit $status)"
expect warning Notifications

stop pulseaudio 'pactl info >/dev/null 2>&1'
doctor
expect warning Microphone
# Without a sound server, the sound server's client has its say only when asked for it.
[ -z "$("$tarvel" doctor 2>&1 >/dev/null)" ] || fail "doctor prints foreign diagnostics: $("$tarvel" doctor 2>&1 >/dev/null)"
"$tarvel" doctor --verbose 2>&1 >/dev/null | grep -q . || fail "doctor --verbose shows no diagnostics"
TARVEL_POCKETSPHINX_MODEL=/nonexistent doctor
expect warning 'Speech recognition'

stop trayer 'xdotool search --onlyvisible --class trayer >/dev/null'
doctor
expect warning Tray
echo "ok: each failure named with its remedy"

# Start at login: the entry names this tarvel and is a valid desktop entry.
entry=$XDG_CONFIG_HOME/autostart/zq.tarvel.desktop
"$tarvel" autostart on | grep -q 'starts at login' || fail "autostart on"
desktop-file-validate "$entry"
grep -qx "Exec=$tarvel" "$entry" || fail "the entry does not start $tarvel: $(grep Exec "$entry")"
"$tarvel" autostart status | grep -q 'starts at login' || fail "autostart status after on"
"$tarvel" autostart off | grep -q 'does not start at login' || fail "autostart off"
[ ! -e "$entry" ] || fail "the entry is still there"
status=0
"$tarvel" autostart sometimes 2>/dev/null || status=$?
[ "$status" = 2 ] || fail "a bad argument exits $status"
echo "ok: autostart"
