#!/usr/bin/env bash
# Takes the README's pictures on a private headless desktop from a build: a composer over the
# terminal that asked for an editor, a highlighted prompt and the `@` completion list, a finished
# quick task in the tray menu, the notification it ended with, and the preferences. The backends
# are the tests' stand-ins.
#
#   scripts/readme-screenshots.sh [BUILD_DIR]     writes docs/images/*.png
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
if [ "${1:-}" != --inside ]; then
    build=$(cd "${1:-$top/build}" && pwd)
    exec "$top/tests/e2e/desktop-session.sh" --probe "$build/bin/tarvel-desktop-probe" -- \
        "$0" --inside "$build"
fi
build=$2
images=$top/docs/images
shots=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$shots"' EXIT
mkdir -p "$images" "$HOME/.codex" "$XDG_CONFIG_HOME/Tarvel"
cp "$top/tests/data/codex/models_cache.json" "$HOME/.codex/"
printf '[General]\nEditorIntegrationPromptSuppressed=true\n' >"$XDG_CONFIG_HOME/Tarvel/Tarvel.conf"
cat >"$shots/answer" <<'STEPS'
out {"type":"item.completed","item":{"type":"agent_message","text":"Three tests fail in parser_test.go: each expects a trailing newline that the new writer drops."}}\n
STEPS
export PATH=$top/tests/support/fakebackends:$PATH FAKE_STEPS=$shots/answer
export TARVEL_APP_PATH=$build/bin/tarvel VISUAL=$build/bin/tarvel-edit
shot() { "$TARVEL_DESKTOP_SCREENSHOT" "$shots/$1.png"; }
crop() { convert "$shots/$1.png" -crop "$2" +repage "$images/$3.png"; }
window() { timeout 20 xdotool search --sync --onlyvisible --name "$1" | head -n 1; }

"$build/bin/tarvel" &
timeout 20 bash -c 'until dbus-send --session --print-reply --dest=zq.tarvel /zq/tarvel org.freedesktop.DBus.Peer.Ping >/dev/null 2>&1; do sleep 0.1; done'
sleep 1

# An assistant asks for its editor from a terminal.
printf 'Refactor the config loader so that missing files are not errors.\n' >"$shots/prompt.md"
xterm -geometry 84x20+80+90 -fa Monospace -fs 10 -e "$VISUAL" "$shots/prompt.md" &
composer=$(window '^Tarvel Composer$')
xdotool windowactivate --sync "$composer" key --clearmodifiers ctrl+End
xdotool type --delay 15 'Keep the public API as it is, and add a test for each case.'
sleep 0.5
shot composer
terminal=$(xdotool search --onlyvisible --class xterm | head -n 1)
eval "$(xwininfo -id "$terminal" | awk '/Absolute upper-left X/ {print "TX=" $NF} /Absolute upper-left Y/ {print "TY=" $NF}
    /Width:/ {print "TW=" $NF} /Height:/ {print "TH=" $NF}')"
crop composer "$((TW + 24))x$((TH + 48))+$((TX - 12))+$((TY - 36))" composer-over-terminal
xdotool key --clearmodifiers Escape

# The editing aids, once per look: a highlighted Markdown prompt (with a misspelled word), and the
# `@` completion list over a project's files. Each look's pictures are named after it. Tarvel
# follows the desktop portal's colour scheme, so each look is announced the way a portal does when
# the user switches it (1 is dark, 2 light).
LOOKS=(dark light) # light last: the pictures after these are light
project=$HOME/project
mkdir -p "$project/src/parser" "$project/docs"
touch "$project/src/parser/lexer.cpp" "$project/src/parser/lexer.h" "$project/src/parser/parser.cpp" \
    "$project/docs/parsing.md" "$project/README.md"
git -C "$project" init -q && git -C "$project" add .
editing_pictures() {
    local look=$1
    dbus-send --session --type=signal /org/freedesktop/portal/desktop \
        org.freedesktop.portal.Settings.SettingChanged string:org.freedesktop.appearance \
        string:color-scheme "variant:uint32:$([ "$look" = dark ] && echo 1 || echo 2)"
    sleep 0.3
    cat >"$shots/plan.md" <<'PROMPT'
## Plan for the parser

- Keep the **public API** as it is; the `Lexer` class stays.
- Read the notes in [the design](https://example.org/design) and fix the recieved tokens.

```cpp
auto tokens = lexer.tokenize(source);
```
PROMPT
    (cd "$project" && exec xterm -geometry 84x24+80+60 -fa Monospace -fs 10 -e "$VISUAL" "$shots/plan.md") &
    local terminal=$! composer
    composer=$(window '^Tarvel Composer$')
    xdotool windowactivate --sync "$composer" key --clearmodifiers ctrl+End
    sleep 1
    eval "$(xwininfo -id "$composer" | awk '/Absolute upper-left X/ {print "CX=" $NF} /Absolute upper-left Y/ {print "CY=" $NF}
        /Width:/ {print "CW=" $NF} /Height:/ {print "CH=" $NF}')"
    shot "highlighted-$look"
    crop "highlighted-$look" "$((CW + 24))x$((CH + 24))+$((CX - 12))+$((CY - 12))" "highlighted-prompt-$look"
    xdotool type --delay 40 'Start with @lex'
    timeout 10 xdotool search --sync --onlyvisible --name '^Tarvel Completions$' >/dev/null
    sleep 0.5
    # The composer and the list below it, together.
    local list
    list=$(xdotool search --onlyvisible --name '^Tarvel Completions$' | head -n 1)
    eval "$(xwininfo -id "$composer" | awk '/Absolute upper-left Y/ {print "CY=" $NF} /Height:/ {print "CH=" $NF}')"
    eval "$(xwininfo -id "$list" | awk '/Absolute upper-left X/ {print "LX=" $NF} /Absolute upper-left Y/ {print "LY=" $NF}
        /Width:/ {print "LW=" $NF} /Height:/ {print "LH=" $NF}')"
    local right=$((LX + LW > CX + CW ? LX + LW : CX + CW)) bottom=$((LY + LH > CY + CH ? LY + LH : CY + CH))
    shot "mention-$look"
    crop "mention-$look" "$((right - CX + 24))x$((bottom - CY + 24))+$((CX - 12))+$((CY - 12))" "mention-list-$look"
    xdotool key --clearmodifiers Escape Escape
    wait "$terminal"
}
for look in "${LOOKS[@]}"; do
    editing_pictures "$look"
done

# A quick task from a free-standing composer.
"$build/bin/tarvel"
scratch=$(window '^Tarvel Quick Task$')
xdotool windowactivate --sync "$scratch"
xdotool type --delay 15 'Why do the parser tests fail since the last commit?'
xdotool key --clearmodifiers ctrl+Return
sleep 2.5
shot notification
crop notification 520x200+760+28 notification
icon=$(xdotool search --onlyvisible --class tarvel | while read -r id; do
    eval "$(xdotool getwindowgeometry --shell "$id")"
    [ "$Y" -lt 28 ] && echo "$id"
done | head -n 1)
eval "$(xdotool getwindowgeometry --shell "$icon")"
xdotool mousemove $((X + WIDTH / 2)) $((Y + HEIGHT / 2)) click 1
sleep 1
shot menu
crop menu 500x220+780+0 tray-menu
xdotool key --clearmodifiers Escape

# The preferences, opened by the window probe.
dbus-send --session --type=signal /zq/tarvel zq.tarvel.DistributedNotifications.Posted \
    string:zq.tarvel.debug-window-request dict:string:string:target,preferences,response,"$shots/frame.json"
timeout 10 bash -c "until [ -s '$shots/frame.json' ]; do sleep 0.1; done"
sleep 1
"$TARVEL_DESKTOP_SCREENSHOT" "$images/preferences.png" "$(window '^Preferences')"
echo "written: $(ls "$images")"
