#!/usr/bin/env bash
# Races Tarvel, running and not running, against `emacsclient -c` (with its server running),
# `gvim -f` and `mousepad` on one headless desktop, and prints a table of medians with each
# editor's time as a multiple of Tarvel's. What is measured, the same way for every editor: the
# command's start until its window is mapped and focused; then a typed line is saved and the
# editor left by its own keys, and the file is checked (bench/bench_editor_race.cpp).
#
#   bench/editor-race.sh [-n RUNS] [--before HELPER] [BUILD_DIR]
#
#   -n RUNS          runs per editor, after one round that is not counted (default 8)
#   --before HELPER  a tarvel-edit built from an earlier commit, raced beside the build's own; a
#                    tarvel beside it is that commit's application, raced with it
#   BUILD_DIR        the build folder (default: build); it needs the targets bench_editor_race
#                    and tarvel-desktop-probe
#
# The other editors are installed here when they are missing (emacs, vim-gtk3, mousepad from
# Debian's archive, as scripts/install-deps.sh installs the project's packages); nothing else
# needs them.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source_dir=$(dirname "$here")

usage() {
    sed -n '8,15s/^# \{0,1\}//p' "${BASH_SOURCE[0]}" >&2
    exit 2
}
runs=8
before=
build=$source_dir/build
while [ $# -gt 0 ]; do
    case $1 in
    -n) runs=${2:?}; shift 2 ;;
    --before) before=$(realpath "${2:?}"); shift 2 ;;
    -*) usage ;;
    *) build=$1; shift ;;
    esac
done
build=$(realpath "$build")
bench=$build/bin/bench_editor_race
probe=$build/bin/tarvel-desktop-probe
if [ ! -x "$bench" ] || [ ! -x "$probe" ]; then
    echo "editor-race: build first: cmake --build $build --target bench_editor_race tarvel-desktop-probe" >&2
    exit 2
fi

missing=()
for editor in emacs:emacs emacsclient:emacs gvim:vim-gtk3 mousepad:mousepad; do
    command -v "${editor%%:*}" >/dev/null || missing+=("${editor#*:}")
done
if [ ${#missing[@]} -gt 0 ]; then
    readarray -t missing < <(printf '%s\n' "${missing[@]}" | sort -u)
    echo "Installing the editors raced: ${missing[*]}"
    sudo=()
    [ "$(id -u)" -eq 0 ] || sudo=(sudo)
    export DEBIAN_FRONTEND=noninteractive
    "${sudo[@]}" apt-get update -qq
    "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# On the desktop: the Emacs server without any init file (the session's home is empty anyway),
# then the race, then the server is ended through its own client.
inside=$(mktemp "${TMPDIR:-/tmp}/editor-race.XXXXXX")
trap 'rm -f "$inside"' EXIT
cat >"$inside" <<'INSIDE'
#!/usr/bin/env bash
set -euo pipefail
bench=$1 runs=$2 build=$3 before=$4
server=tarvel-race
emacs -Q --daemon="$server" 2>/dev/null
trap 'emacsclient -s "$server" -e "(kill-emacs)" >/dev/null 2>&1 || true' EXIT
arguments=(--runs "$runs" --tarvel "$build/bin/tarvel" --helper "$build/bin/tarvel-edit" --emacs-server "$server")
[ -z "$before" ] || arguments+=(--helper-before "$before")
[ -z "$before" ] || [ ! -x "$(dirname "$before")/tarvel" ] || arguments+=(--tarvel-before "$(dirname "$before")/tarvel")
"$bench" "${arguments[@]}"
INSIDE
chmod +x "$inside"
# The desktop's own services (the bus, the accessibility registry the GTK editors start) say
# what they do; only the table is kept.
"$source_dir/tests/e2e/desktop-session.sh" --probe "$probe" -- "$inside" "$bench" "$runs" "$build" "$before" \
    2> >(grep -v -e '^dbus-daemon' -e '^$' >&2) | grep -v -e '^SpiRegistry'
