#!/usr/bin/env bash
# Checks the desktop harness itself: the command sees a private home, runtime folder and bus,
# its exit status comes back, and afterwards, also when the harness is stopped with SIGTERM,
# no helper is left running and no file is left behind. (That the helpers are up and ready,
# the compositor only when asked, is what the desktop tests themselves rely on and check.)
#   desktop-session-selftest.sh PATH-TO-tarvel-desktop-probe
set -uo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
harness=$here/desktop-session.sh
export PROBE=${1:?usage: $0 PATH-TO-tarvel-desktop-probe}
export OUTER_HOME=$HOME OUTER_BUS=${DBUS_SESSION_BUS_ADDRESS:-none}
REPORT=$(mktemp -d)
export REPORT
trap 'rm -rf "$REPORT"' EXIT

failures=0
fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

# Inside the session: one line per failed expectation, then exit 7 so that the status is seen to pass through.
read -r -d '' inside <<'EOF'
fails=0
expect() {
    local what=$1
    shift
    "$@" >/dev/null 2>&1 || { echo "FAIL (inside): $what" >&2; fails=$((fails + 1)); }
}
expect "a bus of its own" test "$DBUS_SESSION_BUS_ADDRESS" != "$OUTER_BUS"
expect "a home of its own" test "$HOME" = "$TARVEL_DESKTOP_DIR/home" -a "$HOME" != "$OUTER_HOME"
expect "the XDG folders in that home" test -d "$XDG_CONFIG_HOME" -a "$XDG_DATA_HOME" = "$HOME/.local/share"
expect "a private runtime folder" test "$(stat -c %a "$XDG_RUNTIME_DIR")" = 700
"$TARVEL_DESKTOP_SCREENSHOT" "$TARVEL_DESKTOP_DIR/shot.png"
expect "a screenshot of the whole screen" test "$(identify -format %m:%wx%h "$TARVEL_DESKTOP_DIR/shot.png")" = PNG:1280x800
echo "$TARVEL_DESKTOP_PIDS" >"$REPORT/pids"
echo "$TARVEL_DESKTOP_DIR" >"$REPORT/dir"
[ "$fails" = 0 ] || exit 1
exit 7
EOF

# Everything started is gone again.
expect_cleaned_up() {
    local run=$1 entry names=
    [ -s "$REPORT/pids" ] || { fail "$run: the command did not run"; return; }
    for entry in $(<"$REPORT/pids"); do
        names+="${entry%%:*} "
        ! kill -0 "${entry#*:}" 2>/dev/null || fail "$run: ${entry%%:*} is still running"
    done
    [ "$names" = "xvfb openbox trayer dunst " ] || fail "$run: helpers were '$names'"
    [ ! -e "$(<"$REPORT/dir")" ] || fail "$run: the session folder was left behind"
    rm -f "$REPORT/pids" "$REPORT/dir"
}

status=0
"$harness" --probe "$PROBE" -- bash -c "$inside" || status=$?
[ "$status" = 7 ] || fail "the command's status came back as $status, not 7"
expect_cleaned_up "a normal run"

"$harness" --probe "$PROBE" -- bash -c \
    'echo "$TARVEL_DESKTOP_DIR" >"$REPORT/dir"; echo "$TARVEL_DESKTOP_PIDS" >"$REPORT/pids"; exec sleep 120' &
harness_pid=$!
for _ in $(seq 1 300); do
    [ -s "$REPORT/pids" ] && break
    sleep 0.05
done
kill -TERM "$harness_pid"
status=0
wait "$harness_pid" || status=$?
[ "$status" = 143 ] || fail "stopped with SIGTERM, the harness returned $status, not 143"
expect_cleaned_up "a run stopped with SIGTERM"

if [ "$failures" != 0 ]; then
    exit 1
fi
echo "desktop harness: all checks passed"
