#!/usr/bin/env bash
# Prints the product's code lines, its test lines and their ratio. Blank lines and comments are
# left out; bench/ counts as neither. C++ (.h, .cpp, .mm), CMake, shell and Python files count.
set -euo pipefail
cd "$(dirname "$0")/.."

# Lines of the named files that are neither blank nor comment: // and /* */ for C++,
# # for CMake, shell and Python (a #! line and #include-style lines are code for C++ only).
count() {
    [ "$#" -eq 0 ] && { echo 0; return; }
    awk '
        FNR == 1 { inBlock = 0; cpp = (FILENAME ~ /\.(h|cpp|mm)$/) }
        {
            line = $0
            sub(/^[ \t]+/, "", line); sub(/[ \t\r]+$/, "", line)
            if (cpp) {
                if (inBlock) {
                    if (index(line, "*/") == 0) next
                    inBlock = 0; line = substr(line, index(line, "*/") + 2)
                    sub(/^[ \t]+/, "", line)
                }
                if (line ~ /^\/\*/) {
                    if (index(substr(line, 3), "*/") == 0) { inBlock = 1; next }
                    line = substr(line, index(substr(line, 3), "*/") + 4)
                    sub(/^[ \t]+/, "", line)
                }
                if (line == "" || line ~ /^\/\//) next
            } else if (line == "" || line ~ /^#/) {
                next
            }
            n++
        }
        END { print n + 0 }
    ' "$@"
}

mapfile -t code < <(git ls-files -- '*.h' '*.cpp' '*.mm' '*CMakeLists.txt' '*.cmake' '*.sh' '*.py' \
    ':!:tests/' ':!:bench/' ':!:scripts/count-lines.sh')
mapfile -t tests < <(git ls-files -- 'tests/*.h' 'tests/*.cpp' 'tests/*.mm' 'tests/*CMakeLists.txt' \
    'tests/*.sh' 'tests/*.py')

codeLines=$(count "${code[@]}")
testLines=$(count "${tests[@]}")
echo "code lines: $codeLines"
echo "test lines: $testLines"
awk -v t="$testLines" -v c="$codeLines" 'BEGIN { printf "ratio: %.2f\n", (c ? t / c : 0) }'
