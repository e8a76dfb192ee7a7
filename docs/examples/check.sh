#!/bin/sh
# check.sh BINDIR [--update]: compares docs/guide.md and docs/formats.md with what they show. A
# block that follows the line
#
#     <!-- shows: NAME.cpp -->         is that file of docs/examples, word for word
#     <!-- shows: PROGRAM ARGUMENT --> is what that program prints, run in an empty directory
#
# and every block of text or C++ has such a line. --update writes what should be there.
set -eu
bin=$(cd "$1" && pwd -P)
update=${2-}
here=$(CDPATH='' cd -- "$(dirname -- "$0")" && pwd -P)
work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
export LC_ALL=C
failures=0

# Every shown thing, in a file of its own: NAME or PROGRAM_ARGUMENT.
mkdir "$work/shown" "$work/new"
sed -n 's/^<!-- shows: \(.*\) -->$/\1/p' "$here/../guide.md" "$here/../formats.md" >"$work/names"
while read -r program argument; do
    case $program in
    *.cpp) cp "$here/$program" "$work/shown/$program" ;;
    *)
        mkdir "$work/run"
        # shellcheck disable=SC2086 # no argument is no argument
        (cd "$work/run" && "$bin/$program" $argument) >"$work/log" 2>&1 || {
            echo "FAILED: $program $argument"
            failures=$((failures + 1))
        }
        # No blanks at line ends.
        sed 's/ *$//' "$work/log" >"$work/shown/$program${argument:+_$argument}"
        rm -r "$work/run"
        ;;
    esac
done <"$work/names"
for file in "$here"/*.cpp; do
    name=$(basename "$file" .cpp)
    grep -q "^$name\( \|\$\)" "$work/names" || {
        echo "FAILED: no page shows what $name prints"
        failures=$((failures + 1))
    }
done

# The pages as they should be: the same text, the blocks put in anew.
for page in guide formats; do
    awk -v shown="$work/shown/" '
        /^<!-- shows: .* -->$/ { name = $3; if ($4 != "-->") name = name "_" $4; }
        /^```/ && !inside {
            inside = 1
            if (name == "" && /^```(cpp|text)$/) {
                print "a block without a shows line: " NR >"/dev/stderr"
                exit 1
            }
            print
            if (name != "") {
                while ((getline line <(shown name)) > 0) print line
                close(shown name)
            }
            next
        }
        /^```/ { inside = 0; name = "" }
        !inside || name == "" { print }
    ' "$here/../$page.md" >"$work/new/$page.md"
    if [ "$update" = --update ]; then
        cp "$work/new/$page.md" "$here/../$page.md"
    elif ! diff -u --label "docs/$page.md" --label "what it should show" "$here/../$page.md" \
        "$work/new/$page.md"; then
        echo "FAILED: docs/$page.md (docs/examples/check.sh $1 --update mends it)"
        failures=$((failures + 1))
    fi
done
[ $failures -eq 0 ] && echo "The pages show $(wc -l <"$work/names") things as they are."
