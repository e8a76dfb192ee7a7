#!/bin/sh
# demo.sh [--here] BINDIR [DIR]: runs collector and uplink, from BINDIR, on the terminal.conf and
# the frames of DIR (this folder's own without one). Exit status 0 when every reading that was sent
# has arrived and the region with the last ones was found again.
#
# Where the system allows it, it runs in namespaces of its own: the terminal's directories are then
# a tmpfs that only the demonstration sees, and the queue is one that no other process can reach.
# With --here it uses the terminal's directories as they are: on a terminal. Where the queue is the
# machine's, two demonstrations run one after the other.
set -u

say() { printf '\n%s\n' "$*"; }
fail() {
    printf 'demo: %s\n' "$*" >&2
    exit 1
}
# head_of FILE LINES: the first lines, cut to the width of a screen, without zero bytes.
head_of() { tr -d '\000' <"$1" | cut -c1-98 | head -n "$2" | sed 's/^/  /'; }

private=no
case ${1-} in
--private | --here)
    private=${1#--}
    shift
    ;;
esac
if [ $# -lt 1 ] || [ $# -gt 2 ]; then
    echo "usage: demo.sh [--here] BINDIR [DIR]" >&2
    exit 2
fi
bin=$(CDPATH='' cd -- "$1" 2>/dev/null && pwd -P) || fail "no folder $1"
dir=${2:-$(dirname -- "$0")}
[ -d "$dir" ] || fail "no folder $dir"
dir=$(CDPATH='' cd -- "$dir" 2>/dev/null && pwd -P) || fail "$2 cannot be entered"
if [ ! -x "$bin/collector" ] || [ ! -x "$bin/uplink" ]; then
    fail "no collector and uplink in $bin: build them first"
fi
[ -d /root ] || fail "there is no /root, from which the key of every queue is derived"

# The tmpfs covers /mnt, so programs there cannot be run.
terminal='mount -t tmpfs terminal /mnt && mkdir -p /mnt/sdcard/log /mnt/sd/term/common/trace'
case $bin/:$dir/:$0 in
*:/mnt/* | /mnt/*) ;;
*)
    for flags in -mi -rmi; do
        [ "$private" = no ] && unshare $flags sh -c "$terminal" 2>/dev/null &&
            exec unshare $flags sh "$0" --private "$bin" "$dir"
    done
    ;;
esac
if [ "$private" = private ]; then
    sh -c "$terminal" || exit 1
fi

scratch=
collector=
uplink=
started=no
finish() {
    status=$?
    trap - EXIT
    trap '' HUP INT QUIT PIPE TERM
    # shellcheck disable=SC2086 # no, one or two numbers
    [ -z "$collector$uplink" ] || kill $collector $uplink 2>/dev/null
    wait
    [ $started = no ] || "$bin/uplink" remove "$dir" >/dev/null 2>&1
    [ -z "$scratch" ] || rm -rf -- "$scratch"
    exit $status
}
# shellcheck disable=SC3045 # a shell without this limit has none to set
ulimit -c 0 2>/dev/null # Ctrl-\ leaves no core file either
trap finish EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 131' QUIT
trap 'exit 141' PIPE
trap 'exit 143' TERM
# The key of the queue is the same for the whole machine, so the lock is on the root
# directory. It ends with the last process that has it open.
if [ "$private" != private ] && command -v flock >/dev/null 2>&1; then
    exec 9</
    waited=0
    while flock -n 9; [ $? -eq 1 ]; do
        [ $waited -ne 0 ] ||
            echo "Another demonstration runs on this machine; this one waits for its end." >&2
        [ $waited -lt 60 ] || fail "the other demonstration still runs"
        sleep 1
        waited=$((waited + 1))
    done
fi

scratch=$(mktemp -d) || exit 1

# Removes a queue that a killed run has left; also the first look at the configuration.
"$bin/uplink" remove "$dir" >"$scratch/out" || exit 1

echo "Two programs of a terminal and a message queue: collector reads captured meter frames and"
echo "sends the good ones, uplink receives them."
[ "$private" != no ] ||
    echo "(No private mounts here: lines for the log and trace files go to standard output.)"

say "Readings, as they reach uplink"
started=yes
"$bin/uplink" receive "$dir" "$scratch/meters.shm" &
uplink=$!
"$bin/collector" "$dir" >"$scratch/collector.out" &
collector=$!
wait $collector
sent=$?
[ $sent -eq 0 ] || kill $uplink 2>/dev/null
wait $uplink
received=$?
collector=
uplink=

shown=0
if [ $received -ne 3 ]; then
    say "The last reading of every meter: uplink, started again, finds it in the shared region"
    "$bin/uplink" show "$dir" "$scratch/meters.shm"
    shown=$?
fi

if [ "$private" != no ]; then
    for file in /mnt/sdcard/log/*.log /mnt/sd/term/common/trace/*.log; do
        [ ! -f "$file" ] || { say "$file" && head_of "$file" 9; }
    done
elif grep -q '^collector: ' "$scratch/collector.out"; then
    say "What collector had for the general log"
    grep '^collector: ' "$scratch/collector.out" | sed 's/^/  /'
fi
if [ -s "$scratch/collector.out" ]; then
    say "collector's standard output begins"
    head_of "$scratch/collector.out" 8
fi
if [ $sent -eq 0 ] && [ $received -eq 3 ]; then
    say "There is no good frame in $dir." >&2
    exit 1
fi
if [ $sent -ne 0 ] || [ $received -ne 0 ] || [ $shown -ne 0 ]; then
    say "The demonstration did NOT do all that it should." >&2
    exit 1
fi
