#!/usr/bin/env bash
# Runs a command on a private headless desktop: its own D-Bus session bus, a virtual X
# display (Xvfb) with the openbox window manager, a trayer system tray (an XEmbed tray that
# reserves the top 28 pixels), the dunst notification server and, on request, the xcompmgr
# compositor and a PulseAudio server with a virtual microphone. Every helper is ready before
# the command starts and is ended by its process id afterwards. Exits with the command's status (125 when the desktop could not be started).
# With --wayland, a Wayland session instead (see below); 77 (a skip) when that cannot be made here.
#
#   tests/e2e/desktop-session.sh [OPTIONS] [--] COMMAND [ARG...]
#
#   --compositor       also run xcompmgr
#   --microphone       also run PulseAudio with a virtual microphone: what is played into the
#                      sink TARVEL_DESKTOP_MICROPHONE_SINK is heard on the default input; without
#                      it there is no sound server (and so no input device) at all
#   --screen WxHxD     the screen (default 1280x800x24)
#   --probe PATH       tarvel-desktop-probe from the build, to see the tray's and the
#                      compositor's selections (default: $TARVEL_DESKTOP_PROBE, else the PATH;
#                      without one the tray's window is awaited instead)
#   --home DIR         HOME (and the XDG folders under it) for the command; default: a new
#                      empty folder, so that the user's own files are never read or written (a
#                      Wayland session run as nobody always gets a new one)
#   --use-current-bus  stay on the caller's session bus, which must be a private one (from
#                      dbus-run-session); default: start one
#   --keep             keep the session folder with the helpers' logs
#   --wayland NAME     sway: a headless sway (WLR_BACKENDS=headless, no input devices, pixman) with
#                      swaybar's StatusNotifierItem tray and one long-lived virtual keyboard; weston:
#                      weston --debug on its X11 back end on the virtual display (its headless back
#                      end has no input at all). sway refuses root, so as root the whole session,
#                      the command included, runs as the user nobody (setpriv), with copies of the
#                      --program files and of the command where nobody cannot reach them
#   --program FILE     with --wayland: a program the command runs, in TARVEL_TEST_PROGRAMS
#   --artifacts DIR    with --wayland: where what the command leaves in TARVEL_TEST_ARTIFACTS goes
#
# The command runs with DISPLAY, XAUTHORITY, DBUS_SESSION_BUS_ADDRESS, QT_QPA_PLATFORM=xcb,
# HOME, XDG_CONFIG_HOME, XDG_DATA_HOME, XDG_CACHE_HOME, a 0700 XDG_RUNTIME_DIR, and
#   TARVEL_DESKTOP_DIR         the session folder (xvfb.log, openbox.log, trayer.log, ...)
#   TARVEL_DESKTOP_PIDS        "name:pid" of each helper, separated by blanks
#   TARVEL_DESKTOP_COMPOSITOR  1 with xcompmgr, else 0
#   TARVEL_DESKTOP_SCREENSHOT  the screenshot helper: "$TARVEL_DESKTOP_SCREENSHOT" FILE.png [WINDOW]
#   PULSE_SERVER               the sound server (with --microphone) or one that is not there
#   TARVEL_DESKTOP_MICROPHONE_SINK  with --microphone: the sink that feeds the microphone
# and with --wayland, QT_QPA_PLATFORM=wayland, WAYLAND_DISPLAY, TARVEL_WAYLAND_COMPOSITOR, SWAYSOCK
# (sway), DISPLAY (weston's X display), TARVEL_TEST_PROGRAMS and TARVEL_TEST_ARTIFACTS.
#
# Keys under sway: each wtype run makes a virtual keyboard of its own, which on a seat without devices
# is the seat's first keyboard; clients bind it only once they hear of it, so the first keys of every
# run were lost. One wtype kept alive for the session keeps a keyboard on the seat, after which each
# run only switches the keymap, which clients take in order with its keys.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
self="$here/$(basename "${BASH_SOURCE[0]}")"
arguments=("$@")

usage() {
    sed -n '9,32s/^# \{0,1\}//p' "$self" >&2
    exit 2
}
fail() {
    echo "desktop-session: $*" >&2
    exit 125
}
skip() {
    echo "desktop-session: SKIPPED: $*" >&2
    exit 77
}

compositor=0
microphone=0
screen=1280x800x24
probe=${TARVEL_DESKTOP_PROBE:-}
home=
use_current_bus=0
keep=0
wayland=
programs=()
artifacts=
while [ $# -gt 0 ]; do
    case $1 in
    --compositor) compositor=1; shift ;;
    --microphone) microphone=1; shift ;;
    --screen) screen=${2:?}; shift 2 ;;
    --probe) probe=${2:?}; shift 2 ;;
    --home) home=${2:?}; shift 2 ;;
    --use-current-bus) use_current_bus=1; shift ;;
    --keep) keep=1; shift ;;
    --wayland) wayland=${2:?}; shift 2 ;;
    --program) programs+=("${2:?}"); shift 2 ;;
    --artifacts) artifacts=${2:?}; shift 2 ;;
    --) shift; break ;;
    -*) usage ;;
    *) break ;;
    esac
done
[ $# -gt 0 ] || usage
[[ $screen =~ ^[0-9]+x[0-9]+x[0-9]+$ ]] || usage
[[ $wayland =~ ^(|sway|weston)$ ]] || usage
options=("${arguments[@]:0:${#arguments[@]}-$#}")
[ "${options[-1]:-}" != -- ] || unset 'options[-1]'
command=("$@")
# sway refuses root: a Wayland session started as root belongs to nobody, with a home of its own.
as_user=()
if [ -n "$wayland" ] && [ "$(id -u)" = 0 ] && [ "$use_current_bus" = 0 ]; then
    as_user=(setpriv --reuid="$(id -u nobody 2>/dev/null)" --regid="$(id -g nobody 2>/dev/null)" --clear-groups)
    home=
    for index in "${!options[@]}"; do
        [ "${options[index]:-}" != --home ] || unset "options[index]" "options[index+1]"
    done
fi
if [ -z "$probe" ]; then
    probe=$(command -v tarvel-desktop-probe || true)
fi

# The session folder holds the private home, the runtime folder, the X cookie and the logs.
# A folder handed over by the outer half of this script (around dbus-run-session) is its to remove.
owns_dir=1
if [ -n "${_TARVEL_DESKTOP_SESSION:-}" ]; then
    dir=$_TARVEL_DESKTOP_SESSION
    owns_dir=0
    unset _TARVEL_DESKTOP_SESSION
else
    dir=$(mktemp -d "${TMPDIR:-/tmp}/tarvel-desktop.XXXXXX")
fi

remove_dir() {
    if [ -n "$artifacts" ] && [ -n "$(ls -A "$dir/artifacts" 2>/dev/null)" ]; then
        mkdir -p "$artifacts" && cp -r "$dir/artifacts/." "$artifacts/" || true
    fi
    if [ "$keep" = 1 ]; then
        echo "desktop-session: logs kept in $dir" >&2
    else
        rm -rf "$dir"
    fi
}

export HOME=${home:-$dir/home}
export XDG_CONFIG_HOME=$HOME/.config XDG_DATA_HOME=$HOME/.local/share XDG_CACHE_HOME=$HOME/.cache
export XDG_RUNTIME_DIR=$dir/runtime
mkdir -p "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_CACHE_HOME"
mkdir -p -m 0700 "$XDG_RUNTIME_DIR"
chmod 0700 "$XDG_RUNTIME_DIR"

if [ "$use_current_bus" = 0 ]; then
    # The bus daemon is started with the private folders already in place, so that it does
    # not even read the user's own service files.
    # A signal for this process is passed on to the inner half, which ends the helpers.
    trap '[ "$owns_dir" = 0 ] || remove_dir' EXIT
    trap '[ -s "$dir/session.pid" ] && kill -TERM "$(<"$dir/session.pid")" 2>/dev/null' INT TERM
    if [ -n "$wayland" ]; then
        needed=(foot sway swaybar swaymsg wtype grim)
        [ "$wayland" = sway ] || needed=(foot weston weston-debug)
        for tool in "${needed[@]}"; do
            command -v "$tool" >/dev/null || skip "$tool is not installed (see scripts/apt-packages.txt)"
        done
        compgen -G '/usr/lib/*/qt6/plugins/platforms/libqwayland-generic.so' >/dev/null ||
            skip "Qt's Wayland platform plug-in is not installed (qt6-wayland)"
        [ ${#as_user[@]} = 0 ] || "${as_user[@]}" true 2>/dev/null || skip "cannot run the session as nobody here"
        mkdir -p -m 0755 "$dir/programs"
        mkdir -p "$dir/artifacts"
        # A program the user can run where it is gets a link; one it cannot (a build in a private home) a copy.
        reachable() {
            if "${as_user[@]}" test -x "$1" -a -r "$1" 2>/dev/null; then
                ln -sf "$(readlink -f "$1")" "$dir/programs/$2"
            else
                install -m 0755 "$1" "$dir/programs/$2"
            fi
            echo "$dir/programs/$2"
        }
        for program in "${programs[@]}"; do
            reachable "$program" "$(basename "$program")" >/dev/null
        done
        [ ! -f "${command[0]}" ] || command[0]=$(reachable "${command[0]}" "command-$(basename "${command[0]}")")
        [ ${#as_user[@]} = 0 ] || chown -R "$(id -u nobody):$(id -g nobody)" "$dir"
    fi
    env -u DISPLAY -u WAYLAND_DISPLAY -u SWAYSOCK -u I3SOCK _TARVEL_DESKTOP_SESSION="$dir" "${as_user[@]}" \
        dbus-run-session -- "$self" --use-current-bus "${options[@]}" -- "${command[@]}" <&0 &
    bus_pid=$!
    status=0
    wait "$bus_pid" || status=$?
    while kill -0 "$bus_pid" 2>/dev/null; do
        status=0
        wait "$bus_pid" || status=$?
    done
    exit "$status"
fi
echo $$ >"$dir/session.pid"
[ -n "${DBUS_SESSION_BUS_ADDRESS:-}" ] || fail "--use-current-bus needs DBUS_SESSION_BUS_ADDRESS"

helpers=()
command_pid=

stop_all() {
    local entry pid index
    if [ -n "$command_pid" ] && kill -0 "$command_pid" 2>/dev/null; then
        kill -TERM "$command_pid" 2>/dev/null || true
        wait "$command_pid" 2>/dev/null || true
    fi
    # Last started, first ended: the X server goes last so the others can leave cleanly.
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
    [ "$owns_dir" = 0 ] || remove_dir
}
trap stop_all EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

start() {
    local name=$1
    shift
    "$@" </dev/null >"$dir/$name.log" 2>&1 &
    helpers+=("$name:$!")
}

# Polls CHECK (a command) until it succeeds; gives up after SECONDS or when the helper dies.
await() {
    local name=$1 seconds=$2 pid=${helpers[-1]#*:}
    shift 2
    local check=$1
    local why="was not ready after $seconds seconds"
    for _ in $(seq 1 $((seconds * 20))); do
        ! "$@" >/dev/null 2>&1 || return 0
        kill -0 "$pid" 2>/dev/null || { why="exited before it was ready"; break; }
        sleep 0.05
    done
    tail -n 20 "$dir/$name.log" >&2 || true
    fail "$name $why ($check)"
}

# openbox announces itself early in its start-up; a window mapped before it has also published
# the work area can be left unmanaged, so that counts as ready.
window_manager_ready() {
    local out
    out=$(xprop -root _NET_SUPPORTING_WM_CHECK _NET_WORKAREA) &&
        [[ $out == *"window id"* && $out == *"_NET_WORKAREA(CARDINAL) = "* ]]
}
selection_owned() {
    "$probe" selection-owner "$1"
}
tray_ready() {
    if [ -n "$probe" ]; then
        selection_owned _NET_SYSTEM_TRAY_S0
    else
        xdotool search --onlyvisible --class trayer
    fi
}
# The window manager has taken the tray's strut out of the work area.
work_area_ready() {
    local out
    out=$(xprop -root _NET_WORKAREA) && [[ $out =~ =\ [0-9]+,\ 28, ]]
}
bus_name_owned() {
    dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
        org.freedesktop.DBus.NameHasOwner "string:$1" | grep -q 'boolean true'
}

if [ "$wayland" = sway ]; then
    # The session's address comes back through a command sway runs once it is up.
    cat >"$dir/sway.conf" <<CONFIG
output HEADLESS-1 resolution ${screen%x*}
xwayland disable
exec printf '%s %s\n' "\$WAYLAND_DISPLAY" "\$SWAYSOCK" >'$dir/sway.address'
bar {
    position top
    tray_output *
}
CONFIG
    start sway env WLR_BACKENDS=headless WLR_LIBINPUT_NO_DEVICES=1 WLR_RENDERER=pixman sway -c "$dir/sway.conf"
    await sway 20 test -s "$dir/sway.address"
    read -r WAYLAND_DISPLAY SWAYSOCK <"$dir/sway.address"
    export WAYLAND_DISPLAY SWAYSOCK
    await sway 20 bus_name_owned org.kde.StatusNotifierWatcher
    start keyboard wtype -s 2000000000
    await keyboard 10 sh -c "swaymsg -t get_inputs | grep -q '\"type\": \"keyboard\"'"
else
    # The X server picks a free display itself (-displayfd), so parallel sessions never race for
    # one. The server accepts every cookie in its authority file, whatever display it is filed under.
    export XAUTHORITY=$dir/xauthority
    cookie=$(od -An -tx1 -N16 /dev/urandom | tr -d ' \n')
    : >"$XAUTHORITY"
    xauth -q -f "$XAUTHORITY" add :0 . "$cookie"
    Xvfb -displayfd 3 -auth "$XAUTHORITY" -nolisten tcp -noreset -screen 0 "$screen" \
        3>"$dir/display" </dev/null >"$dir/xvfb.log" 2>&1 &
    helpers+=("xvfb:$!")
    await xvfb 15 test -s "$dir/display"
    display=$(tr -d '[:space:]' <"$dir/display")
    export DISPLAY=:$display
    xauth -q -f "$XAUTHORITY" add "$DISPLAY" . "$cookie"
    [ "$display" = 0 ] || xauth -q -f "$XAUTHORITY" remove :0
fi

if [ "$wayland" = weston ]; then
    start weston weston --backend=x11-backend.so --use-pixman --width="${screen%%x*}" \
        --height="$(cut -dx -f2 <<<"$screen")" --socket=wayland-tarvel --idle-time=0 --debug
    export WAYLAND_DISPLAY=wayland-tarvel
    await weston 20 sh -c 'weston-debug scene-graph | grep -q "^Output"'
    # Without a window manager on the X display the keyboard follows the pointer.
    xdotool mousemove 1 "$(($(cut -dx -f2 <<<"$screen") - 1))"
elif [ -z "$wayland" ]; then
    start openbox openbox --sm-disable
    await openbox 15 window_manager_ready

    start trayer trayer --edge top --align right --widthtype pixel --width 200 --height 28 \
        --SetDockType true --SetPartialStrut true
    await trayer 15 tray_ready
    await trayer 15 work_area_ready

    if [ "$compositor" = 1 ]; then
        start xcompmgr xcompmgr
        if [ -n "$probe" ]; then
            await xcompmgr 15 selection_owned _NET_WM_CM_S0
        fi
    fi

    start dunst dunst
    await dunst 15 bus_name_owned org.freedesktop.Notifications
fi

# Qt lists no monitor sources, so the null sink's monitor is remapped into a real source.
# Without a microphone PULSE_SERVER names a socket that does not exist: no server is spawned.
pulse_socket=$XDG_RUNTIME_DIR/pulse-native
if [ "$microphone" = 1 ]; then
    export PULSE_SERVER=unix:$pulse_socket
    start pulseaudio pulseaudio --daemonize=no --exit-idle-time=-1 --disallow-exit -n \
        --load="module-native-protocol-unix socket=$pulse_socket" \
        --load="module-null-sink sink_name=vmic_sink rate=16000 channels=1" \
        --load="module-remap-source master=vmic_sink.monitor source_name=vmic" \
        --load="module-always-sink"
    await pulseaudio 15 pactl info
    pactl set-default-source vmic >/dev/null || fail "pulseaudio did not take vmic as the default source"
    export TARVEL_DESKTOP_MICROPHONE_SINK=vmic_sink
else
    export PULSE_SERVER=unix:$XDG_RUNTIME_DIR/no-sound-server
fi

if [ -n "$wayland" ]; then
    export QT_QPA_PLATFORM=wayland TARVEL_WAYLAND_COMPOSITOR=$wayland
    export TARVEL_TEST_PROGRAMS=$dir/programs TARVEL_TEST_ARTIFACTS=$dir/artifacts
else
    export QT_QPA_PLATFORM=xcb
    unset WAYLAND_DISPLAY
fi
export TARVEL_DESKTOP_DIR=$dir
export TARVEL_DESKTOP_PIDS="${helpers[*]}"
export TARVEL_DESKTOP_COMPOSITOR=$compositor
export TARVEL_DESKTOP_SCREENSHOT=$here/screenshot.sh

# In the background so that a signal reaches the traps at once; stdin stays the caller's.
"$@" <&0 &
command_pid=$!
status=0
wait "$command_pid" || status=$?
command_pid=
exit "$status"
