#!/bin/sh
# Style and static analysis of the whole tree; fails on the first finding of each tool.
set -eu
status=0
files() { # DIRECTORY... CONDITION
    find "$@" -type f | sort
}

echo "line width"
# shellcheck disable=SC2046 # file names here have no blanks
awk 'length($0) > 100 { print FILENAME ":" FNR ": " length($0) " columns"; wide = 1 }
    END { exit wide }' run .ci/run machine/init CMakeLists.txt $(files bench cmake docs examples \
    machine mavkit packaging tests tools \( -name '*.cpp' -o -name '*.h' -o -name '*.sh' \
    -o -name '*.py' -o -name '*.awk' -o -name '*.cmake' -o -name CMakeLists.txt \)) || status=1

echo "clang-format"
# shellcheck disable=SC2046 # file names here have no blanks
clang-format --dry-run --Werror $(files bench docs examples machine mavkit tests tools \
    \( -name '*.cpp' -o -name '*.h' \)) || status=1

echo "shellcheck"
# shellcheck disable=SC2046
shellcheck -x run .ci/run machine/init \
    $(files bench cmake docs examples machine packaging tests tools -name '*.sh') || status=1

# Both analysers read what the build really compiles.
cmake --preset host >/dev/null
echo "clang-tidy"
files mavkit examples machine tools -name '*.cpp' |
    xargs -P "$(nproc)" -n 4 clang-tidy --quiet -p build/host 2>/dev/null || status=1

echo "cppcheck"
cppcheck --quiet --error-exitcode=1 --std=c++17 --language=c++ --inline-suppr \
    --enable=warning,performance,portability \
    -j "$(nproc)" -I . mavkit examples machine tools || status=1

[ "$status" -eq 0 ] && echo "lint: clean"
exit "$status"
