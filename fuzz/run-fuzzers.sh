#!/usr/bin/env bash
# Runs every fuzz target of a fuzz build folder (make fuzz) for SECONDS each, from its seed
# folders, and prints what each did. Inputs found to be new are kept in BUILD/fuzz-corpus/<name>
# for the next run; a crash leaves its input in BUILD/fuzz-crashes/<name>/ and makes the exit
# status non-zero, after all the targets have run.
set -uo pipefail
build=${1:?usage: run-fuzzers.sh BUILD_FOLDER SECONDS}
seconds=${2:?usage: run-fuzzers.sh BUILD_FOLDER SECONDS}
build=$(cd "$build" && pwd)
suppressions="$(cd "$(dirname "$0")/.." && pwd)/scripts/lsan-suppressions.txt"
export LSAN_OPTIONS="suppressions=$suppressions:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"

# The settings targets write a file for every input: in memory they run many times as often.
if [ -d /dev/shm ] && [ -w /dev/shm ]; then
    export TMPDIR=/dev/shm
fi

crashed=0
while IFS=$'\t' read -r name seeds; do
    corpus="$build/fuzz-corpus/$name"
    crashes="$build/fuzz-crashes/$name"
    log="$build/fuzz-logs/$name.log"
    mkdir -p "$corpus" "$crashes" "$(dirname "$log")"
    # shellcheck disable=SC2086 # the seed folders are one space-separated list
    "$build/bin/$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix="$crashes/" "$corpus" $seeds >"$log" 2>&1
    status=$?
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    if [ "$status" -eq 0 ]; then
        printf '%-26s %10s executions  %5s inputs in corpus  no crash\n' "$name" "${runs:-?}" \
            "$(find "$corpus" -type f | wc -l)"
    else
        crashed=1
        printf '%-26s %10s executions  CRASH (exit %s), input in %s, log %s\n' "$name" "${runs:-?}" \
            "$status" "$crashes" "$log"
        grep -m 5 -E 'ERROR|SUMMARY|fuzz check failed|runtime error' "$log" | sed 's/^/    /'
    fi
done <"$build/fuzzers.txt"
exit "$crashed"
