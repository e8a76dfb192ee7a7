#!/bin/sh
# pages.sh MAVUTIL [--update]: makes the man page (tools/mavutil.1) and the reference and the
# examples of docs/mavutil.md from what mavutil prints, and compares them with those that are there.
# --update writes them.
#
# In the page, the block after <!-- help: VERB --> is that verb's help; the commands of a block
# after <!-- run --> are run, one after the other, in an empty directory in UTC.
set -eu
mavutil=$(CDPATH='' cd -- "$(dirname -- "$1")" && pwd -P)/${1##*/}
update=${2-}
tools=$(CDPATH='' cd -- "$(dirname -- "$0")" && pwd -P)
docs=$tools/../docs
work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
export LC_ALL=C TZ=UTC0
mkdir "$work/bin" "$work/run"
ln -s "$mavutil" "$work/bin/mavutil"
PATH=$work/bin:$PATH

# man_verb VERB SUMMARY: its help in the language of man pages. Operations come first; then the
# notes, and examples, which are indented.
man_verb() {
    printf '.SS %s: %s\n' "$1" "$2"
    mavutil help "$1" | awk '
        function text(s) {
            gsub(/\\/, "\\e", s)
            gsub(/-/, "\\-", s)
            return s ~ /^[.'\'']/ ? "\\&" s : s
        }
        !notes && /^  mavutil / {
            usage = substr($0, 3)
            at = match(usage, /  +/)
            print ".TP\n.B " text(at ? substr(usage, 1, at - 1) : usage)
            if (at) print text(substr(usage, at + RLENGTH))
            next
        }
        !notes && /^   / { sub(/^ */, ""); print text($0); next }
        !notes { notes = 1; print ".PP" }
        /^  / && !example { example = 1; print ".PP\n.nf\n.RS" }
        { sub(/^  /, ""); print text($0) }
        END { if (example) print ".RE\n.fi" }'
}
verbs() { mavutil help | sed -n 's/^  \([a-z]*\)  *\(.*\)/\1 \2/p'; }

{
    printf '.\\" Made by tools/pages.sh from the texts of mavutil help.\n'
    printf '.TH MAVUTIL 1 "" "%s" "User Commands"\n' "$(mavutil --version)"
    cat <<'END'
.SH NAME
mavutil \- look into a running terminal
.SH SYNOPSIS
.B mavutil
.I VERB
\&...
.br
.B mavutil help
.RI [ VERB ]
.SH DESCRIPTION
Shows what the processes of a terminal share, message queues, logs and shared regions, and turns
bytes into what they mean and back.
Results are lines on standard output; what went wrong is a line on standard error.
With
.B \-\-json
each line is an object.
Looking changes nothing.
.SH VERBS
END
    verbs | while read -r verb summary; do man_verb "$verb" "$summary"; done
    echo '.SH EXIT STATUS'
    mavutil help | sed -n 's/^Exit status: \(.*\)/\1/p'
    cat <<'END'
.SH FILES
.TP
.I /mnt/sdcard/log/general.log
the general log
.TP
.I /mnt/sd/term/common/trace/*.log
the trace files; each has its backup beside it, with
.I _bak
behind the name
END
} >"$work/mavutil.1"

awk -v run="$work/run" '
    /^<!-- help: [a-z]* -->$/ { made = "mavutil help " $3 }
    /^<!-- run -->$/ { commands = 1 }
    /^```/ && !inside {
        inside = 1
        print
        if (made != "") while ((made | getline line) > 0) print line
        if (made != "") close(made)
        next
    }
    /^```/ { inside = commands = 0; made = "" }
    inside && commands {
        if ($0 !~ /^\$ /) next
        print
        command = "cd " run " && { " substr($0, 3) "; } 2>&1"
        while ((command | getline line) > 0) print line
        close(command)
        next
    }
    !inside || made == "" { print }
' "$docs/mavutil.md" >"$work/mavutil.md"

failures=0
# made FILE: takes or compares what was made of it.
made() {
    if [ "$update" = --update ]; then
        cp "$work/${1##*/}" "$1"
    elif ! diff -u --label "$1" --label "what mavutil prints" "$1" "$work/${1##*/}"; then
        echo "FAILED: ${1##*/} (tools/pages.sh $mavutil --update makes it anew)"
        failures=$((failures + 1))
    fi
}
made "$tools/mavutil.1"
made "$docs/mavutil.md"

verbs | while read -r verb rest; do
    grep -q "^<!-- help: $verb -->" "$docs/mavutil.md" || echo "$verb: $rest"
done >"$work/missing"
# Operations that a page calls and that are not there.
grep -ohE 'mavutil (queue|trace|time|mask|shm) [a-z]+' "$docs"/*.md "$docs/../README.md" | sort -u |
    while read -r name verb operation; do
        mavutil help "$verb" | grep -q "^  $name $verb $operation\( \|$\)" ||
            echo "$name $verb $operation"
    done >>"$work/missing"
if [ -s "$work/missing" ]; then
    echo "FAILED: not in the reference, or not in mavutil:"
    cat "$work/missing"
    failures=$((failures + 1))
fi
[ $failures -eq 0 ] && echo "The man page and the reference say what mavutil help says."
