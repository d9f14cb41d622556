#!/usr/bin/env bash
# Installs Tarvel from the build and checks it as a desktop would see it: the installed tree,
# its desktop entry and AppStream file, and, on a private session bus that knows only the
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

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

# 1. The tree a package gets: DESTDIR with the usual prefix.
DESTDIR=$work/stage cmake --install "$build" --prefix /usr >/dev/null
stage=$work/stage/usr
for file in bin/tarvel bin/tarvel-edit share/applications/zq.tarvel.desktop \
    share/icons/hicolor/scalable/apps/zq.tarvel.svg share/icons/hicolor/symbolic/apps/zq.tarvel-symbolic.svg \
    share/dbus-1/services/zq.tarvel.service share/metainfo/zq.tarvel.metainfo.xml share/doc/tarvel/LICENSE; do
    [ -e "$stage/$file" ] || fail "missing $file"
done
[ -x "$stage/bin/tarvel" ] && [ -x "$stage/bin/tarvel-edit" ] || fail "programs not executable"
grep -qx 'Exec=/usr/bin/tarvel' "$stage/share/dbus-1/services/zq.tarvel.service" ||
    fail "the service file does not start /usr/bin/tarvel: $(cat "$stage/share/dbus-1/services/zq.tarvel.service")"
desktop-file-validate "$stage/share/applications/zq.tarvel.desktop"
# zq.tarvel is the application's fixed identifier on every platform, one part short of what
# AppStream likes to see.
appstreamcli validate --no-net --override=cid-desktopapp-is-not-rdns=info \
    "$stage/share/metainfo/zq.tarvel.metainfo.xml" >/dev/null
echo "ok: installed tree and metadata"

# 2. An installation to run: its service file names its own tarvel.
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

composer() { xdotool search --sync --onlyvisible --name '^Tarvel Composer$' 2>/dev/null | head -n 1; }
await_composer() {
    local window
    window=$(timeout 20 bash -c "$(declare -f composer); composer") || fail "no composer appeared"
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
