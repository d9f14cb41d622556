#!/bin/sh
# Stands in for the codex, claude and opencode command-line programs in tests. The
# wrappers beside it pass the program's name first. Behaviour comes from the environment:
#
#   FAKE_<NAME>_VERSION_STDOUT, FAKE_<NAME>_VERSION_STDERR, FAKE_<NAME>_VERSION_EXIT
#       what the version query prints and its exit code (<NAME> is CODEX, CLAUDE or OPENCODE;
#       an empty value prints nothing; unset, stdout is a plausible version line)
#   FAKE_<NAME>_VERSION_HANG=1
#       the version query ignores SIGINT and SIGTERM and never answers
#   FAKE_<NAME>_VERSION_DELAY=SECONDS
#       the version query sleeps this long before it answers; with FAKE_RECORD_DIR it then
#       creates <name>.version-answered there
#   FAKE_RECORD_DIR
#       a version query appends a line to <name>.version-calls; a run writes its arguments to <name>.argv (each followed by a NUL byte), its working
#       folder to <name>.cwd and its PATH to <name>.path; the steps below write there too
#   FAKE_STEPS
#       a file of steps for a run, one per line; without it a run prints a short answer:
#         out TEXT / err TEXT     TEXT to stdout / stderr as printf %b reads it (\n, \0033)
#         sleep SECONDS
#         ignore-stop-signals     SIGINT and SIGTERM are ignored from here on
#         report-stop-signals     SIGINT and SIGTERM only print "got INT" / "got TERM"
#         grandchild              starts `sleep 300` in the background, pid to grandchild.pid
#         ready                   creates the file "ready"
#         hang                    sleeps until a signal ends it
#         become-sleep            replaces itself with `sleep 300`, which dies of SIGINT for sure
#         kill SIGNAL             sends SIGNAL to itself
#         exit CODE
set -u
name=$1
shift
upper=$(printf '%s' "$name" | tr '[:lower:]' '[:upper:]')

case $name in
codex)
    version_argument=-V
    default_version='codex-cli 0.0.1-fake'
    ;;
claude)
    version_argument=--version
    default_version='2.0.0 (Claude Code)'
    ;;
*)
    version_argument=--version
    default_version='1.0.0-fake'
    ;;
esac

if [ "$#" -eq 1 ] && [ "$1" = "$version_argument" ]; then
    [ -n "${FAKE_RECORD_DIR-}" ] && printf '%s\n' "$1" >>"$FAKE_RECORD_DIR/$name.version-calls"
    eval "hang=\${FAKE_${upper}_VERSION_HANG-}"
    if [ "$hang" = 1 ]; then
        trap '' INT TERM
        while :; do sleep 1; done
    fi
    eval "delay=\${FAKE_${upper}_VERSION_DELAY-}"
    [ -n "$delay" ] && sleep "$delay"
    eval "stdout=\${FAKE_${upper}_VERSION_STDOUT-\$default_version}"
    eval "stderr=\${FAKE_${upper}_VERSION_STDERR-}"
    eval "status=\${FAKE_${upper}_VERSION_EXIT-0}"
    [ -n "$stdout" ] && printf '%s\n' "$stdout"
    [ -n "$stderr" ] && printf '%s\n' "$stderr" >&2
    [ -n "$delay" ] && [ -n "${FAKE_RECORD_DIR-}" ] && : >"$FAKE_RECORD_DIR/$name.version-answered"
    exit "$status"
fi

record=${FAKE_RECORD_DIR-}
if [ -n "$record" ]; then
    # The arguments appear whole: a test waits for the file and reads it at once.
    pwd >"$record/$name.cwd"
    printf '%s' "$PATH" >"$record/$name.path"
    : >"$record/.$name.argv.$$"
    for argument in "$@"; do
        printf '%s\0' "$argument" >>"$record/.$name.argv.$$"
    done
    mv -f "$record/.$name.argv.$$" "$record/$name.argv"
fi

steps=${FAKE_STEPS-}
if [ -z "$steps" ]; then
    case $name in
    codex)
        printf '%s\n' '{"type":"thread.started","thread_id":"fake-thread"}'
        printf '%s\n' '{"type":"item.completed","item":{"id":"item_0","type":"agent_message","text":"Fake answer."}}'
        ;;
    *) printf '%s\n' 'Fake answer.' ;;
    esac
    exit 0
fi

# The steps come in on descriptor 3 so that read-stdin reads the real standard input.
while IFS= read -r line <&3 || [ -n "$line" ]; do
    step=${line%% *}
    argument=${line#"$step"}
    argument=${argument# }
    case $step in
    out) printf '%b' "$argument" ;;
    err) printf '%b' "$argument" >&2 ;;
    sleep) sleep "$argument" ;;
    ignore-stop-signals) trap '' INT TERM ;;
    report-stop-signals)
        trap 'printf "got INT\n"' INT
        trap 'printf "got TERM\n"' TERM
        ;;
    grandchild)
        sleep 300 &
        echo $! >"$record/grandchild.pid"
        ;;
    ready) : >"$record/ready" ;;
    hang) while :; do sleep 1; done ;;
    become-sleep) exec sleep 300 ;;
    kill) kill -s "$argument" $$ ;;
    exit) exit "$argument" ;;
    '') ;;
    *)
        printf 'fakebackend: unknown step %s\n' "$step" >&2
        exit 99
        ;;
    esac
done 3<"$steps"
