#!/usr/bin/env bash
# Runs a command in a private Wayland session: its own D-Bus session bus and a compositor on a
# virtual output, with everything (compositor, terminal, Tarvel and the command) running as an
# unprivileged user. sway refuses to run as root, so when started as root the session drops to the
# user "nobody" (setpriv), with a private HOME and a 0700 XDG_RUNTIME_DIR of that user's, and runs
# copies of the programs that user could not read where they are. Every helper is ready before the
# command starts and is ended by its process id afterwards. Exits with the command's status; 77
# (a skip) where such a session cannot be made here, 125 when the compositor did not start.
#
#   tests/e2e/wayland-session.sh [OPTIONS] [--] COMMAND [ARG...]
#
#   --compositor NAME  sway (default): headless (WLR_BACKENDS=headless, no input devices, the pixman
#                      renderer), swaybar with its StatusNotifierItem tray, and one long-lived
#                      virtual keyboard (see below); or weston: weston's X11 back end on a private
#                      Xvfb (its headless back end has no input at all), started with --debug so that
#                      weston-debug can print its scene graph
#   --program FILE     a program the command runs (tarvel, tarvel-edit): reachable for the user in
#                      TARVEL_TEST_PROGRAMS under its own name, copied there when it must be
#   --artifacts DIR    copy what the command leaves in TARVEL_TEST_ARTIFACTS (screenshots) there
#   --home DIR         HOME for the session (not as root: nobody gets a new empty one); default: a
#                      new empty folder, so that the user's own files are never read or written
#   --keep             keep the session folder with the helpers' logs
#
# The command runs with WAYLAND_DISPLAY, QT_QPA_PLATFORM=wayland, DBUS_SESSION_BUS_ADDRESS, HOME,
# XDG_CONFIG_HOME, XDG_DATA_HOME, XDG_CACHE_HOME, a 0700 XDG_RUNTIME_DIR, and
#   TARVEL_WAYLAND_COMPOSITOR  sway or weston
#   SWAYSOCK                   with sway: its IPC socket (swaymsg, Tarvel's placement)
#   DISPLAY                    with weston: the X display weston draws on (xdotool types into it)
#   TARVEL_TEST_PROGRAMS       the folder of the --program files
#   TARVEL_TEST_ARTIFACTS   a folder the command may write screenshots to
#   TARVEL_DESKTOP_DIR         the session folder (sway.log, weston.log, ...)
#
# Keys under sway: each wtype run makes a virtual keyboard of its own, and the first keys of one
# are lost while clients bind the keyboard the seat just gained (the seat has none otherwise). One
# wtype kept alive for the whole session keeps a keyboard on the seat, so each later wtype run
# only switches keymaps, which clients take in order with its keys.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
self="$here/$(basename "${BASH_SOURCE[0]}")"

usage() {
    sed -n '10,22s/^# \{0,1\}//p' "$self" >&2
    exit 2
}
skip() {
    echo "wayland-session: SKIPPED: $*" >&2
    exit 77
}
fail() {
    echo "wayland-session: $*" >&2
    exit 125
}

compositor=sway
programs=()
artifacts=
home=
keep=0
inner=0
while [ $# -gt 0 ]; do
    case $1 in
    --compositor) compositor=${2:?}; shift 2 ;;
    --program) programs+=("${2:?}"); shift 2 ;;
    --artifacts) artifacts=${2:?}; shift 2 ;;
    --home) home=${2:?}; shift 2 ;;
    --keep) keep=1; shift ;;
    --inner) inner=1; shift ;;
    --) shift; break ;;
    -*) usage ;;
    *) break ;;
    esac
done
[ $# -gt 0 ] || usage
case $compositor in sway | weston) ;; *) usage ;; esac

if [ "$inner" = 0 ]; then
    needed=(dbus-run-session dbus-send)
    if [ "$compositor" = sway ]; then
        needed+=(sway swaybar swaymsg foot wtype grim jq)
    else
        needed+=(weston weston-debug foot Xvfb xdotool import)
    fi
    for tool in "${needed[@]}"; do
        command -v "$tool" >/dev/null || skip "$tool is not installed (scripts/apt-packages.txt lists it)"
    done
    [ -e /usr/lib/x86_64-linux-gnu/qt6/plugins/platforms/libqwayland-generic.so ] ||
        compgen -G '/usr/lib/*/qt6/plugins/platforms/libqwayland-generic.so' >/dev/null ||
        skip "Qt's Wayland platform plug-in is not installed (qt6-wayland)"

    # As root, the session belongs to nobody; anyone else keeps their own identity.
    as_user=()
    if [ "$(id -u)" = 0 ]; then
        command -v setpriv >/dev/null || skip "setpriv is missing, so the session cannot leave root"
        id -u nobody >/dev/null 2>&1 || skip "there is no user nobody to run the session as"
        as_user=(setpriv --reuid="$(id -u nobody)" --regid="$(id -g nobody)" --clear-groups)
        "${as_user[@]}" true 2>/dev/null || skip "setpriv cannot switch to the user nobody here"
        [ -z "$home" ] || echo "wayland-session: the session belongs to nobody, so it gets a home of its own" >&2
        home=
    fi
    dir=$(mktemp -d "${TMPDIR:-/tmp}/tarvel-wayland.XXXXXX")
    chmod 0711 "$dir"
    mkdir -p "$dir/home" "$dir/runtime" "$dir/programs" "$dir/artifacts" "$dir/logs"
    chmod 0700 "$dir/runtime"
    [ ${#as_user[@]} = 0 ] || chown "$(id -u nobody):$(id -g nobody)" "$dir/home" "$dir/runtime" "$dir/artifacts" "$dir/logs"
    chmod 0755 "$dir/programs"

    # A program the user can run where it is gets a link; otherwise (a build folder under /root) a copy.
    reachable() {
        local file=$1 name=$2
        if "${as_user[@]}" test -x "$file" -a -r "$file" 2>/dev/null; then
            ln -s "$(readlink -f "$file")" "$dir/programs/$name"
        else
            install -m 0755 "$file" "$dir/programs/$name"
        fi
        echo "$dir/programs/$name"
    }
    for program in "${programs[@]}"; do
        [ -f "$program" ] || fail "no such program: $program"
        reachable "$program" "$(basename "$program")" >/dev/null
    done
    command=("$@")
    if [ -f "${command[0]}" ]; then
        command[0]=$(reachable "${command[0]}" "command-$(basename "${command[0]}")")
    fi

    finish() {
        local status=$?
        if [ -n "$artifacts" ] && [ -n "$(ls -A "$dir/artifacts" 2>/dev/null)" ]; then
            mkdir -p "$artifacts" && cp -r "$dir/artifacts/." "$artifacts/" || true
        fi
        if [ "$keep" = 1 ]; then
            echo "wayland-session: logs kept in $dir" >&2
        else
            rm -rf "$dir"
        fi
        exit "$status"
    }
    trap finish EXIT
    # A signal for this process is passed on to the inner half, which ends the helpers.
    trap '[ -s "$dir/logs/session.pid" ] && kill -TERM "$(<"$dir/logs/session.pid")" 2>/dev/null' INT TERM
    status=0
    env -u DISPLAY -u WAYLAND_DISPLAY -u XAUTHORITY -u DBUS_SESSION_BUS_ADDRESS -u SWAYSOCK -u I3SOCK \
        HOME="${home:-$dir/home}" XDG_RUNTIME_DIR="$dir/runtime" TARVEL_DESKTOP_DIR="$dir" \
        "${as_user[@]}" dbus-run-session -- "$self" --inner --compositor "$compositor" -- "${command[@]}" <&0 &
    session=$!
    wait "$session" || status=$?
    while kill -0 "$session" 2>/dev/null; do
        status=0
        wait "$session" || status=$?
    done
    exit "$status"
fi

# The inner half: the user's own, on the private bus.
dir=$TARVEL_DESKTOP_DIR
logs=$dir/logs
echo $$ >"$logs/session.pid"
export XDG_CONFIG_HOME=$HOME/.config XDG_DATA_HOME=$HOME/.local/share XDG_CACHE_HOME=$HOME/.cache
mkdir -p "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_CACHE_HOME"

helpers=()
command_pid=
stop_all() {
    local index pid
    if [ -n "$command_pid" ] && kill -0 "$command_pid" 2>/dev/null; then
        kill -TERM "$command_pid" 2>/dev/null || true
        wait "$command_pid" 2>/dev/null || true
    fi
    for ((index = ${#helpers[@]} - 1; index >= 0; index--)); do
        pid=${helpers[index]#*:}
        kill -TERM "$pid" 2>/dev/null || continue
        for _ in $(seq 1 40); do
            kill -0 "$pid" 2>/dev/null || break
            sleep 0.05
        done
        kill -KILL "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
}
trap stop_all EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

start() {
    local name=$1
    shift
    "$@" </dev/null >"$logs/$name.log" 2>&1 &
    helpers+=("$name:$!")
}
await() {
    local name=$1 seconds=$2 pid=${helpers[-1]#*:}
    shift 2
    for _ in $(seq 1 $((seconds * 20))); do
        if "$@" >/dev/null 2>&1; then
            return 0
        fi
        if ! kill -0 "$pid" 2>/dev/null; then
            tail -n 20 "$logs/$name.log" >&2 || true
            fail "$name exited before it was ready ($*)"
        fi
        sleep 0.05
    done
    tail -n 20 "$logs/$name.log" >&2 || true
    fail "$name was not ready after $seconds seconds ($*)"
}
bus_name_owned() {
    dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
        org.freedesktop.DBus.NameHasOwner "string:$1" | grep -q 'boolean true'
}

if [ "$compositor" = sway ]; then
    # The session's address comes back through a line sway runs once it is up.
    cat >"$logs/sway.conf" <<CONFIG
output HEADLESS-1 resolution 1280x800
xwayland disable
exec printf '%s %s\n' "\$WAYLAND_DISPLAY" "\$SWAYSOCK" >'$logs/sway.address'
bar {
    position top
    tray_output *
}
CONFIG
    start sway env WLR_BACKENDS=headless WLR_LIBINPUT_NO_DEVICES=1 WLR_RENDERER=pixman sway -c "$logs/sway.conf"
    await sway 20 test -s "$logs/sway.address"
    read -r WAYLAND_DISPLAY SWAYSOCK <"$logs/sway.address"
    export WAYLAND_DISPLAY SWAYSOCK
    await sway 20 swaymsg -t get_version
    await sway 20 bus_name_owned org.kde.StatusNotifierWatcher
    start keyboard wtype -s 2000000000
    await keyboard 10 sh -c "swaymsg -t get_inputs | grep -q '\"type\": \"keyboard\"'"
else
    Xvfb -displayfd 3 -nolisten tcp -noreset -screen 0 1280x800x24 3>"$logs/display" </dev/null \
        >"$logs/xvfb.log" 2>&1 &
    helpers+=("xvfb:$!")
    await xvfb 15 test -s "$logs/display"
    export DISPLAY=:$(tr -d '[:space:]' <"$logs/display")
    start weston weston --backend=x11-backend.so --use-pixman --width=1280 --height=800 \
        --socket=wayland-tarvel --idle-time=0 --debug
    export WAYLAND_DISPLAY=wayland-tarvel
    await weston 20 test -S "$XDG_RUNTIME_DIR/wayland-tarvel"
    await weston 20 sh -c 'weston-debug scene-graph | grep -q "^Output"'
    # Without a window manager on the X display the keyboard follows the pointer.
    xdotool mousemove 1270 790
fi

export QT_QPA_PLATFORM=wayland
export TARVEL_WAYLAND_COMPOSITOR=$compositor
export TARVEL_TEST_PROGRAMS=$dir/programs
export TARVEL_TEST_ARTIFACTS=$dir/artifacts
"$@" <&0 &
command_pid=$!
status=0
wait "$command_pid" || status=$?
command_pid=
exit "$status"
