#!/bin/sh
# mavutil_test.sh MAVUTIL...: runs mavutil (a program, or an emulator and a program) on a table of
# command lines and holds what it prints and its exit status against what they ought to be.
set -u
work=$(mktemp -d) || exit 1
program=
for word; do
    case $word in
    */*) word=$(CDPATH='' cd -- "${word%/*}" && pwd -P)/${word##*/} ;;
    esac
    program="$program '$word'"
done
if [ $# -eq 1 ]; then
    ln -s "$word" "$work/mavutil"
else
    printf '#!/bin/sh\nexec%s "$@"\n' "$program" >"$work/mavutil" && chmod +x "$work/mavutil"
fi
flag=
pids=
# shellcheck disable=SC2086 # none, or some numbers
finish() {
    status=$?
    [ -z "$pids" ] || kill $pids 2>/dev/null
    [ -z "$flag" ] || "$work/mavutil" queue remove $flag >/dev/null 2>&1
    rm -rf -- "$work"
    exit $status
}
trap finish EXIT
trap 'exit 1' INT TERM
export TZ=UTC-1 # an hour ahead, so that local time shows
failures=0
count=0

complain() {
    printf 'FAILED: %s\n  got:  %s\n  want: %s\n' "$1" "$2" "$3"
    failures=$((failures + 1))
}
# t STATUS OUTPUT ARGUMENT...: what it prints, errors too, fits the pattern OUTPUT.
t() {
    want_status=$1 want=$2
    shift 2
    got=$("$work/mavutil" "$@" 2>&1)
    got="$?:$got"
    count=$((count + 1))
    # shellcheck disable=SC2254 # a pattern on purpose
    case $got in
    $want_status:$want) ;;
    *) complain "$*" "$got" "$want_status:$want" ;;
    esac
}
bad() {
    pattern="mavutil: $1"
    shift
    t 2 "$pattern" "$@"
}
# until_there FILE TEXT: waits for a line.
until_there() {
    for _ in 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0; do
        grep -qs -e "$2" "$1" && return 0
        sleep 0.1
    done
    complain "waiting for '$2'" "$(cat "$1")" "$2"
}
cd "$work" && ./mavutil help >/dev/null || exit 1

# Logs, followed while the table runs: a tick tells that the first look was taken.
mkdir logs
echo before >logs/one.log
./mavutil trace follow -g x logs >followed 2>&1 &
pids="$pids $!" follow=$!
for _ in 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0; do
    echo 'tick x' >>logs/one.log
    sleep 0.1
    grep -q tick followed && break
done
printf 'x 1\nwithout\nx 2\n' >>logs/one.log
until_there followed 'x 2'
{ # a rotation: the line after the last look is in the backup alone
    echo 'x 3' >>logs/one.log
    cp logs/one.log content
    : >logs/one.log
    { cat content && head -c 5000 /dev/zero; } >logs/one.log_bak
    printf 'x 4\nx half' >>logs/one.log
    echo 'x 5' >logs/two.log
}

# Arguments: one line that says what was wrong and what is right.
bad "no verb '': mavutil help lists them"
bad "no verb 'que': mavutil help lists them" que
bad "no verb 'x': *" help x
bad "no queue '': see mavutil help queue" queue
bad "no queue 'peek FLAG': see *" queue 'peek FLAG' M
bad "too few arguments: write mavutil queue send FLAG TYPE HEX..." queue send M 1
bad "too many arguments: write mavutil hex \[FILE \[OFFSET \[LENGTH\]\]\]" hex a 1 2 3
bad "a flag is one character or a number; 'xy' is no*" queue peek xy
bad "a flag is one character or a number; '256' is no number from 0 to 255" queue peek 256
bad "TYPE '0' is no number from 1 to *" queue send M 0 01
bad "'6G' is no hex: write digits in pairs, 20 24 03 05 or 20240305" queue send M 1 6G
bad "a message has 1 to * bytes, not 0" queue send M 1 ''
bad "a message has 1 to * bytes, not 30000" queue send M 1 "$(head -c 60000 /dev/zero | tr '\0' 5)"
bad "MS '1' is no number from 10 to 3600000" shm watch mavutil 1
bad "'5-3' names no bit: write numbers and ranges like 0-2,5" mask count 1,5-3
bad "'x' names no bit: *" mask bytes x
bad "'8388608' names no bit: *" mask bytes 1,8388608
bad "OFFSET '-1' is no number from 0 to *" hex mavutil -1
bad "OFFSET '1' is no number from 0 to 0" hex /dev/null 1
bad "a text is missing after -g" trace show -g
bad "'0x92' is no layout: *" time decode 0x92 01
bad "layout 0xE4 has 4 bytes, not 3" time decode 0xE4 05 03 24
bad "'2024-02-30' is no time: write 2024-03-05, *" time add 2024-02-30 1 day
bad "N '1x' is no number*" time add now 1x day
bad "'daze' is no unit: second, *" time trim now daze
for verb in queue trace time mask record hex crc scan shm; do
    t 0 "  mavutil $verb *" help $verb
done
t 0 'mavutil looks into a running terminal; *' help

# Time. 0x97 and 0xE1 hold a weekday, 0x93 one without a date.
t 0 '2024-03-05 06:07:08 Tue 1709615228' time decode 0x17 20 24 03 05 06 07 08
t 0 '2024-03-05 06:07:08 Tue 1709615228' time decode 0x61 0807 06050324
t 0 '2024-03-05 06:07:08 Tue 1709615228' time decode 0xE1 08 07 06 02 05 03 24
t 1 '2024-03-05 06:07:08 invalid' time decode 0xE1 08 07 06 03 05 03 24
t 1 '2024-02-31 00:00:00 invalid' time decode 23 20 24 02 31 00 00 00
t 1 '2024-03-05 06:1A:08 invalid' time decode 0x16 24 03 05 06 1A 08
t 0 '????-??-?? 06:07:08 ??? [1-9]*' time decode 0x13 06 07 08
for record in '0x17 20 24 03 05 06 07 08' '0x1F 20 24 03 05 06 07 08' '0x26 24 03 05 06 07' \
    '0x97 20 24 03 05 02 06 07 08' '0x93 02 06 07 08' '0x64 05 03 24' '0x77 20'; do
    t 0 "${record#* }" time encode "${record%% *}" 2024-03-05T06:07:08
done
t 0 '70 01 02 01 00' time encode 0x26 @86400
t 0 '2024-03-02 00:00:00 Sat 1709334000' time add 2024-01-31 1 month
t 0 '2024-03-05 06:06:58 Tue *' time add '2024-03-05 06:07:08' -10 seconds
t 1 'mavutil: there is no such time' time add 2024-03-05 0x7FFFFFFF years
t 0 '2024-03-05 00:00:00 Tue 1709593200' time trim 20240305060708 day
t 0 -64 time diff 2024-03-05 2024-01-01 days
t 0 '2024-03-05 08:00:00 Tue *
2024-03-06 08:00:00 Wed *' time next 1 day 8 hours 2 2024-03-05T06:07
t 0 '2024-03-05 06:15:00 Tue *' time next 15 minutes 0 second 1 2024-03-05T06:07

# Masks and records.
t 0 '02 00 00 00 E4 60' mask bytes 0-2 5,9-10
t 0 '0-2,5,9-10' mask text 02 00 00 00 E4 60
t 1 'mavutil: 5 bytes are no mask: *' mask text 02 00 00 00 E4
t 0 101-107 mask union 101-104 103-107
t 0 4 mask count 1-3,7
head='01000000 feffffff 03000000 80510100 05000000'
t 1 '*type      3
first     1
second    -2
created   86400 1970-01-02 01:00:00
age       [1-9]*
lifetime  5
in-force  no
bytes1    2 61 1B |a.|
bytes2    0  ||
bytes3    1 7A |z|*' record "$head" 02000000 00000000 01000000 611B 7A
t 0 '*age       0
lifetime  0
in-force  yes*' record 00000000 00000000 01000000 00000000 00000000 00000000 00000000 00000000
t 1 '*mavutil: no record in the last 33 bytes' record "$head" ff000000 0000000000000000 00
printf '%s\n' "$head 000000000000000000000000" "$head 000000000000000000000000" |
    ./mavutil record 2>&1 | grep -c in-force >counted
[ "$(cat counted)" = 2 ] || complain 'record: two on standard input' "$(cat counted)" 2

# Files.
printf '%s\033%s' 12345678 9 >nine
t 0 '00000000  31 32 33 34 35 36 37 38 1B 39                    |12345678.9|
0000000A' hex nine
t 0 '00000008  1B *
00000009' hex nine 8 1
t 0 0000000A hex nine 10
{ head -c 64 /dev/zero && echo; } >zeros
t 0 '00000000  00 *
\*
00000040  0A *
00000041' shm show zeros
t 1 "mavutil: $work: Is a directory" hex "$work"
t 1 'mavutil: none: No such file or directory' crc none
printf 123456789 >nine
t 0 'CRC-16/IBM-3740 29B1 9 nine
CRC-16/XMODEM 31C3 9 nine
CRC-16/IBM-3740 FFFF 0 /dev/null
CRC-16/XMODEM 0000 0 /dev/null' crc nine /dev/null
t 1 'mavutil: /dev/zero: File too large' crc /dev/zero
mkdir -p tree/a/b && printf 123 >tree/a/b/f && printf 12345 >"$(printf 'tree/n\n\033w')" && ln -s a tree/l
t 0 "*           3 */tree/a/b/f*" scan tree
t 0 '*           5 */tree/n..w*' scan tree
t 0 '*           9 total' scan tree
t 0 '*           6 total' scan tree 0
t 1 'mavutil: nine/. is no directory *' scan nine
./mavutil help >/dev/full 2>full
echo "$?" >>full
tr '\n' ' ' <full | grep -q '^mavutil: writing: .* 1 $' || complain 'a full card' "$(cat full)" 1

# Logs: the backup first, without what fills it up; a line that steers a terminal, or has no end.
mkdir traces
{ printf 'old 1\nold 2\n' && head -c 1000 /dev/zero; } >traces/t_a.log_bak
printf 'new\033[2J\n\nfinal' >traces/t_a.log
t 0 'old 1
old 2
new\[2J

final' trace show traces/t_a.log
t 0 'old 2' trace show -g 2 traces/t_a.log_bak
t 1 '' trace show -g ERROR traces
t 1 '' trace show none.log
echo 'alone' >traces/b.log_bak
echo 'not a log' >traces/b.text
t 0 'b.log_bak: alone
t_a.log: final' trace show -g al traces

# Queues, on a flag that nobody uses; without /root there are none.
if ./mavutil queue peek 255 2>&1 | grep -q 'without /root'; then
    t 1 '*mavutil: no keys of queues without /root: *' queue list
    t 1 'mavutil: not sent*' queue send 255 1 01
else
    free=$((128 + $$ % 64))
    until ./mavutil queue peek $free 2>&1 | grep -q 'has no queue'; do
        free=$((free + 1))
        [ $free -le 255 ] || exit 1
    done
    for verb in peek recv clear remove; do
        t 1 "mavutil: flag $free has no queue" queue $verb $free
    done
    ./mavutil queue watch $free 20 >watched 2>&1 &
    pids="$pids $!" watch=$!
    until_there watched '^#flag'
    t 1 "mavutil: flag $free has no queue" queue peek $free
    flag=$free
    t 0 '' queue send $flag 3 68 12 01
    t 0 '' queue send "$(printf 0x%02x $flag)" 2 AABB
    t 0 '' queue send $flag 2 "$(head -c 80 /dev/zero | tr '\0' 1)"
    t 0 '*
  '"$flag"' -     3     45  *' queue list
    if ./mavutil queue peek $flag 2>&1 | grep -q MSG_COPY; then
        t 1 'mavutil: this kernel shows no message without taking it *' queue peek $flag
    else
        t 0 '3 3 68 12 01
2 2 AA BB
2 40 11 11 * 11' queue peek $flag
    fi
    until_there watched "^  $flag -     3     45 "
    t 1 '' queue recv $flag 1
    t 0 '2 2 AA BB' queue recv $flag -9
    t 0 '3 3 68 12 01' queue recv $flag
    t 1 '' queue recv $flag 3
    t 0 '' queue clear $flag 2
    t 1 '' queue recv $flag
    t 0 '' queue remove $flag
    flag=
    until_there watched "^  $free - removed"
    kill -INT $watch
    wait $watch || complain 'queue watch, interrupted' $? 0
fi

# A region that changes, and grows.
./mavutil shm watch zeros 20 >watched 2>&1 &
pids="$pids $!" watch=$!
for _ in 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0; do
    printf A | dd of=zeros bs=1 seek=9 conv=notrunc 2>/dev/null
    sleep 0.05
    grep -q 00000009 watched && break
    printf '\0' | dd of=zeros bs=1 seek=9 conv=notrunc 2>/dev/null
    sleep 0.05
done
printf BC >>zeros
until_there watched ' size 65 -> 67$'
grep -q '^[0-9:]* 00000009 00 -> 41$' watched || complain 'shm watch' "$(cat watched)" '00 -> 41'
kill -TERM $watch
wait $watch || complain 'shm watch, terminated' $? 0

until_there followed 'x 5'
until_there followed 'x 4'
kill -INT $follow
wait $follow || complain 'trace follow, interrupted' $? 0
pids=
sed 's/^one.log: //' followed | grep -v -e tick -e two | tr '\n' ' ' >lines
[ "$(cat lines)" = 'x 1 x 2 x 3 x 4 ' ] || complain 'trace follow' "$(cat followed)" 'x 1 to x 4, once'

[ $failures -eq 0 ] && echo "mavutil: $count command lines hold"
