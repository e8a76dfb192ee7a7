#!/bin/sh
# Style and static analysis of everything that git tracks; fails on the first finding of each tool.
set -eu
sources=$(git ls-files '*.cpp' '*.h')
status=0

echo "clang-format"
# shellcheck disable=SC2086 # file names here have no blanks
clang-format --dry-run --Werror $sources || status=1

echo "shellcheck"
# shellcheck disable=SC2046
shellcheck run .ci/run $(git ls-files '*.sh') || status=1

# Both analysers read what the build really compiles.
cmake --preset host >/dev/null
echo "clang-tidy"
git ls-files 'mavkit/*.cpp' 'examples/*.cpp' 'tools/*.cpp' |
    xargs -P "$(nproc)" -n 4 clang-tidy --quiet -p build/host 2>/dev/null || status=1

echo "cppcheck"
cppcheck --quiet --error-exitcode=1 --std=c++17 --language=c++ --inline-suppr \
    --enable=warning,performance,portability \
    -j "$(nproc)" -I . mavkit examples tools || status=1

[ "$status" -eq 0 ] && echo "lint: clean"
exit "$status"
