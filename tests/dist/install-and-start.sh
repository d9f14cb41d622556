#!/usr/bin/env bash
# Installs Tarvel from the build and checks, on a private session bus that knows only the
# installed service file, that tarvel-edit has the bus start the installed application: once,
# however many helpers ask at the same time.
#
#   install-and-start.sh BUILD_DIR DESKTOP_SESSION_SCRIPT PROBE
set -euo pipefail
build=$(cd "${1:?build folder}" && pwd)
session=${2:?desktop-session.sh}
probe=${3:?tarvel-desktop-probe}
work=$(mktemp -d "${TMPDIR:-/tmp}/tarvel-install.XXXXXX")
trap 'rm -rf "$work"' EXIT

fail() { echo "FAIL: $*" >&2; exit 1; }

# An installation to run, whose service file names its own tarvel (the packaged tree and its
# metadata are package.sh's).
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
grep -qx "Exec=$prefix/bin/tarvel" "$prefix/share/dbus-1/services/zq.tarvel.service" ||
    fail "the service file does not name $prefix/bin/tarvel"

# The bus and the desktop share one private home, so the started application and the
# helpers agree on the data folder.
export HOME=$work/home
export XDG_CONFIG_HOME=$HOME/.config XDG_DATA_HOME=$HOME/.local/share XDG_CACHE_HOME=$HOME/.cache
export XDG_RUNTIME_DIR=$work/runtime
mkdir -p "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_CACHE_HOME"
mkdir -p -m 0700 "$XDG_RUNTIME_DIR"
cat >"$work/bus.conf" <<CONF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:tmpdir=$work</listen>
  <servicedir>$prefix/share/dbus-1/services</servicedir>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
CONF

cat >"$work/inside.sh" <<'INSIDE'
#!/usr/bin/env bash
set -euo pipefail
prefix=$1 work=$2
fail() { echo "FAIL: $*" >&2; exit 1; }
unset TARVEL_APP_PATH
export PATH=/usr/bin:/bin
! command -v tarvel >/dev/null || fail "a tarvel on PATH would hide what the bus does"
export TARVEL_FALLBACK_EDITOR=false
app_pids() { pgrep -x -f "$prefix/bin/tarvel" || true; }

await_composer() {
    local window
    window=$(timeout 20 xdotool search --sync --onlyvisible --name '^Tarvel Composer$' 2>/dev/null | head -n 1) || window=
    [ -n "$window" ] || fail "no composer appeared"
    echo "$window"
}

# One helper: the bus starts the installed application and its composer answers.
printf 'initial\n' >"$work/one.txt"
TARVEL_STARTED_BY=helper "$prefix/bin/tarvel-edit" "$work/one.txt" &
helper=$!
window=$(await_composer)
pids=$(app_pids)
[ "$(wc -w <<<"$pids")" = 1 ] || fail "expected one tarvel, found: $pids"
# A copy the helper started itself would have the helper's environment; the bus's has not.
! tr '\0' '\n' <"/proc/$pids/environ" | grep -qx 'TARVEL_STARTED_BY=helper' ||
    fail "tarvel-edit started tarvel itself, not through the bus"
xdotool windowactivate --sync "$window" key --clearmodifiers ctrl+a type 'from the installed copy'
xdotool key --clearmodifiers ctrl+Return
wait "$helper" || fail "tarvel-edit exited $?"
grep -qx 'from the installed copy' "$work/one.txt" || fail "the answer did not reach the file: $(cat "$work/one.txt")"
kill -TERM $pids
timeout 10 bash -c "while kill -0 $pids 2>/dev/null; do sleep 0.05; done"
echo "ok: the bus started the installed application"

# Twenty helpers at once: one application.
helpers=()
for n in $(seq 1 20); do
    printf 'text %s\n' "$n" >"$work/many-$n.txt"
    "$prefix/bin/tarvel-edit" "$work/many-$n.txt" &
    helpers+=("$!")
done
await_composer >/dev/null
sleep 1
pids=$(app_pids)
[ "$(wc -w <<<"$pids")" = 1 ] || fail "20 helpers started $(wc -w <<<"$pids") applications"
# Quitting answers every waiting request as cancelled.
kill -TERM $pids
for pid in "${helpers[@]}"; do
    status=0
    timeout 20 tail --pid="$pid" -f /dev/null || fail "a helper was left waiting"
    wait "$pid" || status=$?
    [ "$status" = 1 ] || fail "a helper exited $status, not 1 (cancelled)"
done
echo "ok: 20 helpers, one application"
INSIDE
chmod +x "$work/inside.sh"
dbus-run-session --config-file="$work/bus.conf" -- \
    "$session" --use-current-bus --probe "$probe" --home "$HOME" -- "$work/inside.sh" "$prefix" "$work"
