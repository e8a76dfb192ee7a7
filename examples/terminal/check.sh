#!/bin/sh
# check.sh BINDIR: runs the demonstration as a test: complete, without namespaces, on folders with
# mistakes, interrupted, and two at once; and reads its region at difficult moments.
set -u
bin=$1
here=$(CDPATH='' cd -- "$(dirname -- "$0")" && pwd -P)
work=$(mktemp -d) || exit 1
trap 'rm -rf -- "$work"' EXIT
mkdir "$work/tmp" "$work/bin"
export TMPDIR="$work/tmp" # where the demonstration keeps what it must remove
failures=0

complain() {
    echo "FAILED: $*"
    sed 's/^/    /' "$work/out"
    failures=$((failures + 1))
}
# await PATTERN FILE: waits for a line of a program in the background, a minute at most.
await() {
    tries=0
    until grep -q -e "$1" "$2" 2>/dev/null; do
        tries=$((tries + 1))
        [ $tries -lt 1200 ] || { complain "no line with '$1'" && return; }
        sleep 0.05
    done
}
# demo STATUS DIR PATTERN...: it ends with STATUS, every pattern is in its output, nothing is left.
demo() {
    want=$1 dir=$2
    shift 2
    sh "$here/demo.sh" "$bin" "$dir" >"$work/out" 2>&1
    status=$?
    [ $status -eq "$want" ] || complain "$dir: status $status, not $want"
    for pattern in "$@"; do
        grep -q -e "$pattern" "$work/out" || complain "$dir: no line with '$pattern'"
    done
    [ -z "$(ls -A "$TMPDIR")" ] || complain "$dir: something is left in $TMPDIR"
}
whole() {
    demo 0 "$here" '^  sent 27, taken 26, expired 1; 9 frames were damaged$' \
        '^  2024-03-05 20:02:11    107     2653.36$' \
        '^  heard from  101-104,107$' '^  silent      105-106,108-109$' \
        '^  every day, at 00:05  *20..-..-.. 00:05:00$' \
        '^  every month, on the 1st at 02:00  *20..-..-01 02:00:00$' \
        '^  meter 107, 2024-03-05 20:02:11, 2653.360000 kWh from 36 53 26 00 $' \
        'collector: day.frames:22: wrong CRC$' 'IpcInfo: Rpc info was expired.Type is 1$' \
        '(queueid=[0-9]*,type=1) send succeed(68 bytes):65 00 00 00 ' "$@"
}
# folder NAME [SED]: a copy of the example's folder, its configuration edited.
folder() {
    mkdir -p "$work/$1" && cp "$here"/*.frames "$work/$1" &&
        sed -e "${2-}" "$here/terminal.conf" >"$work/$1/terminal.conf"
}
# bad_conf SED PATTERN: the configuration is refused at the first look at it.
bad_conf() {
    folder conf "$1" && "$bin/uplink" remove "$work/conf" >"$work/out" 2>&1
    status=$?
    if [ $status -ne 1 ] || ! grep -q -e "$2" "$work/out"; then
        complain "status $status, or no line with '$2'"
    fi
}

whole
private=$(grep -c '^/mnt/sdcard/log/general.log$' "$work/out")

bad_conf 's/^level=.*/level=Loud/' 'level=Loud is none of: Disabled Error Warn Info Verbose'
bad_conf 's/^traceWay=.*/traceWay=12/' 'traceWay=12 is none of: None Stdout .* ttyp5'
bad_conf 's/^limit=.*/limit=much/' 'limit=much is no number from'
bad_conf 's/^prefix=/prefix /' 'prefix is missing'
bad_conf 's/^queue=.*/queue=MM/' 'queue=MM must have 1 to 1 characters'
bad_conf 's/^meters=.*/meters=all/' 'meters=all names no meter'
bad_conf 's:^name.uplink=.*:name.uplink=../x:' 'name=../x must not hold a /'
folder half 's/^name.collector=.*//'
demo 1 "$work/half" 'name.collector is missing' 'did NOT do'
demo 1 "$work/none" 'no folder'
mkdir "$work/empty" && demo 1 "$work/empty" 'no folder with a terminal.conf and a'
for file in terminal.conf day.frames; do # the superuser may read everything but this
    folder "no$file" && ln -sf nowhere "$work/no$file/$file"
    demo 1 "$work/no$file" "/$file: cannot be read: No such file"
done

# Only damaged frames: each is reported, and a day without a reading is no success.
folder noise
{
    sed 's/#/68/' "$here/day.frames" | tr -d '\n'
    printf '\n6\n\000\n\377\376=%%s%%n\n'
} >"$work/noise/day.frames"
demo 1 "$work/noise" 'sent 0, taken 0' 'day.frames:2: wrong length' 'day.frames:3: not hex' \
    '^There is no good frame in .*/noise'
! grep -q 'shared region\|no region' "$work/out" || complain "noise: a region is shown"

# Interrupted in the middle: both programs end, and nothing is left.
folder long
for i in 1 2 3; do cp "$here/day.frames" "$work/long/$i.frames"; done
# A shell starts background programs with the signals of the keyboard ignored. Not every `env` can
# undo that.
first=QUIT:131 undo='env --default-signal=QUIT'
$undo true 2>/dev/null || first=HUP:129 undo=
interrupted() {
    for signal in $first TERM:143; do
        $undo sh "$here/demo.sh" "$bin" "$work/long" >"$work/out" 2>&1 &
        await '  101  ' "$work/out"
        kill -s "${signal%:*}" $! && wait $!
        status=$?
        [ $status -eq "${signal#*:}" ] || complain "$signal: status $status"
        [ -z "$(ls -A "$TMPDIR")" ] || complain "$signal: something is left in $TMPDIR"
    done
    # The reader of its output leaves after a line.
    {
        sh "$here/demo.sh" "$bin" "$work/long" 2>&1
        echo $? >"$work/status"
    } | head -n 1 >"$work/out"
    [ "$(cat "$work/status")" -eq 141 ] || complain "closed pipe: status $(cat "$work/status")"
    [ -z "$(ls -A "$TMPDIR")" ] || complain "closed pipe: something is left in $TMPDIR"
}
interrupted

# The same without namespaces, when the queue belongs to the whole machine.
printf '#!/bin/sh\nexit 1\n' >"$work/bin/unshare"
chmod +x "$work/bin/unshare"
PATH=$work/bin:$PATH
whole 'No private mounts here'
[ "$private" -eq 1 ] || echo "no namespaces on this machine: only the plain way was checked"
interrupted
# Its key, as ftok makes it: tests that run at the same time have queues too.
letter=$(sed -n 's/^queue=\(.\)$/\1/p' "$here/terminal.conf")
key=$(($(printf '%d' "'$letter") << 24 | ($(stat -c %d /root) & 255) << 16 |
    ($(stat -c %i /root) & 65535)))
no_queue() { # asked while no other demonstration runs
    (
        flock 9
        ! grep -q "^ *$key " /proc/sysvipc/msg 2>/dev/null
    ) 9</ || complain "a queue is left"
}
no_queue

# Two at once: the second one reports that it waits, and both get all readings.
sh "$here/demo.sh" "$bin" "$here" >"$work/first" 2>&1 &
await Readings "$work/first"
whole 'Another demonstration runs on this machine'
wait $! || complain "the first of two: status $?"
grep -q '^  sent 27, taken 26,' "$work/first" || complain "the first of two is not whole"
no_queue

# The region. A reader never changes anything. (The lock is the one of demo.sh.)
exec 9</
flock 9
region=$work/region
# shows STATUS PATTERN [REGION]: checks the output of `uplink show`, and that the file is as before.
shows() {
    cp "${3-$region}" "$work/before" 2>/dev/null
    "$bin/uplink" show "$here" "${3-$region}" >"$work/out" 2>&1
    status=$?
    if [ $status -ne "$1" ] || ! grep -q -e "$2" "$work/out"; then
        complain "show: status $status, or no line with '$2'"
    fi
    [ ! -e "${3-$region}" ] || cmp -s "${3-$region}" "$work/before" ||
        complain "show changes the file"
}
# receive: starts the two programs on the folder long; $! is then the id of the receiver.
receive() {
    "$bin/uplink" remove "$here" >/dev/null
    "$bin/collector" "$work/long" >/dev/null &
    "$bin/uplink" receive "$here" "$region" >"$work/received" 2>&1 &
}
shows 1 'No such file' "$work/mistyped"
[ ! -e "$work/mistyped" ] || complain "show creates a file"
shows 1 'something else' "$here/terminal.conf"
cp "$here/terminal.conf" "$work/foreign"
! "$bin/uplink" receive "$here" "$work/foreign" >"$work/out" 2>&1 ||
    complain "receive uses a foreign file"
cmp -s "$here/terminal.conf" "$work/foreign" || complain "receive changes a foreign file"

# While a writer works every look finds a whole table; then the writer is killed in the middle.
printf 'MTR2' >"$region" # a start that was cut short
shows 1 'not finished'
receive
receiver=$!
await '  101  ' "$work/received"
for look in 1 2 3 4; do
    "$bin/uplink" show "$here" "$region" >"$work/out" 2>&1 || complain "look $look beside a writer"
done
kill -9 $receiver 2>/dev/null # it may have ended by now
wait
shows 0 '^The last record, dumped'
# With either of the slots damaged the other one is shown. With both damaged there is no reading,
# and the next writer starts anew in the same file.
for slot in 0 4096; do
    cp "$region" "$work/damaged"
    printf X | dd of="$work/damaged" bs=1 seek=$((slot + 20)) conv=notrunc 2>/dev/null
    shows 0 '^The last record, dumped' "$work/damaged"
done
printf X | dd of="$work/damaged" bs=1 seek=20 conv=notrunc 2>/dev/null
shows 1 'no reading in it' "$work/damaged"
cp "$work/damaged" "$region"
receive
wait
shows 0 '2024-03-05 20:02:11    107     2653.36'
# A card that is full part way through a new region.
(
    trap '' XFSZ
    ulimit -f 4
    exec "$bin/uplink" receive "$here" "$work/full"
) >"$work/out" 2>&1
status=$?
[ $status -eq 1 ] || complain "a full card: status $status"
grep -q 'the region cannot be created' "$work/out" || complain "a full card is not reported"
exec 9<&-
no_queue

[ $failures -eq 0 ] && echo "The demonstration passes its checks."
