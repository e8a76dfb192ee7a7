#!/bin/sh
# mavutil_test.sh MAVUTIL...: runs mavutil (a program, or an emulator and a program) on tables of
# command lines and compares what it prints and its exit status with what they should be.
set -u
completion=$(CDPATH='' cd -- "$(dirname -- "$0")/../../tools" && pwd -P)/mavutil.bash
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
flags=
pids=
# shellcheck disable=SC2086 # none, or some numbers
finish() {
    status=$?
    [ -z "$pids" ] || kill $pids 2>/dev/null
    for flag in $flags; do
        "$work/mavutil" queue remove "$flag" >/dev/null 2>&1
        rmdir "${TMPDIR:-/tmp}/mavutil-flag-$flag"
    done
    rm -rf -- "$work"
    exit $status
}
trap finish EXIT
trap 'exit 1' INT TERM
export TZ=UTC-1 # an hour ahead, so that local time shows
export LC_ALL=C
unset NO_COLOR
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
    got=$($as ./mavutil "$@" 2>&1 </dev/null)
    got="$?:$got"
    count=$((count + 1))
    # shellcheck disable=SC2254 # a pattern on purpose
    case $got in
    [12]:) complain "$*" "$got" "a word on what went wrong" ;;
    $want_status:$want) ;;
    *) complain "$*" "$got" "$want_status:$want" ;;
    esac
}
bad() {
    pattern="mavutil: $1"
    shift
    t 2 "$pattern" "$@"
}
# same NAME GOT WANT
same() { [ "$2" = "$3" ] || complain "$@"; }
# until_there FILE TEXT: waits for a line.
until_there() {
    for _ in $(seq 100); do
        grep -qs -e "$2" "$1" && return 0
        sleep 0.2
    done
    complain "waiting for '$2'" "$(cat "$1")" "$2"
}
as=
cd "$work" && ./mavutil help >/dev/null || exit 1

# Without the rights of a superuser, where that is possible: for files and queues of another user.
lesser=none
if [ "$(id -u)" -ne 0 ]; then
    lesser=
elif setpriv --bounding-set=-dac_override,-dac_read_search,-ipc_owner true 2>/dev/null; then
    lesser='setpriv --bounding-set=-dac_override,-dac_read_search,-ipc_owner'
fi

# Arguments: one line that says what was wrong and what is right.
bad "a verb is missing: mavutil help lists them"
bad "an argument is empty" ''
bad "an argument is empty" queue send M 1 ''
bad "an argument is empty" trace show -g ''
bad "no verb 'que': mavutil help lists them" que
bad "no verb 'x': *" help x
bad "no verb '--json': *" --json
bad "no queue '': see mavutil help queue" queue
bad "no queue 'peek FLAG': see *" queue 'peek FLAG' M
bad "too few arguments: write mavutil queue send FLAG TYPE HEX..." queue send M 1
bad "too many arguments: write mavutil hex \[FILE \[OFFSET \[LENGTH\]\]\]" hex a 1 2 3
bad "no option '--jason' here: write mavutil queue list \[--json\]" queue list --jason
bad "no option '--json' here: write mavutil mask count LIST..." mask count --json 1
bad "no option '-x' here: *" crc -x
bad "no option '--json=1' here: *" scan --json=1
bad "no option '--sincere' here: *" trace show --sincere now
bad "TEXT is missing after -g" trace show -g
bad "N is missing after -n" trace show -n
bad "N '0' is no number from 1 to *" trace show -n 0
bad "'yesterday' is no time: *" trace show --since yesterday
bad "a flag is one character or a number; 'xy' is no*" queue peek xy
bad "a flag is one character or a number; '256' is no number from 0 to 255" queue peek 256
bad "TYPE '0' is no number from 1 to *" queue send M 0 01
bad "'6G' is no hex: write digits in pairs, 20 24 03 05 or 20240305" queue send M 1 6G
bad "a message has 1 to * bytes, not 0" queue send M 1 ' '
bad "a message has 1 to * bytes, not 30000" queue send M 1 "$(head -c 60000 /dev/zero | tr '\0' 5)"
bad "MS '1' is no number from 10 to 3600000" shm watch mavutil 1
bad "'5-3' names no bit: write numbers and ranges like 0-2,5" mask count 1,5-3
bad "'' names no bit: *" mask count 1,
bad "'x' names no bit: *" mask bytes x
bad "'8388608' names no bit: *" mask bytes 1,8388608
bad "OFFSET '-1' is no number from 0 on" hex mavutil -1
bad "OFFSET 1 lies beyond the end, at 0" hex /dev/null 1
bad "'0x92' is no layout: *" time decode 0x92 01
bad "layout 0xE4 has 4 bytes, not 3" time decode 0xE4 05 03 24
bad "'2024-02-30' is no time: write 2024-03-05, *" time add 2024-02-30 1 day
bad "'25:00' is no time: *" time trim 25:00 day
bad "'2024x03x05' is no time: *" time trim 2024x03x05 day
bad "N '1x' is no number*" time add now 1x day
bad "'daze' is no unit: second, *" time trim now daze

# Help, no wider than a screen.
for verb in queue trace time mask record hex crc scan shm help; do
    t 0 "  mavutil $verb *" help $verb
    same "$verb --help" "$(./mavutil $verb --help)" "$(./mavutil help $verb)"
    same "$verb: columns" "$(./mavutil help $verb | grep -c '.\{81\}')" 0
done
t 0 'mavutil looks into a running terminal: *' --help
t 0 'mavutil looks into a running terminal: *' -h
t 0 '  mavutil queue *' queue peek -h
t 0 'mavutil [0-9]*.[0-9]*' --version

# What bash offers for the last word.
if command -v bash >/dev/null; then
    for row in 'tra|trace' 'help sh|shm' 'queue p|peek' 'record --j|--json' 'crc --|--help' \
        'trace show --|--help --since' 'time next 1 mi|minute'; do
        # shellcheck disable=SC2016 # words of bash
        got=$(PATH=$work:$PATH bash -c '. "$1" && COMP_WORDS=(mavutil $2) &&
            COMP_CWORD=$((${#COMP_WORDS[@]} - 1)) && _mavutil; echo "${COMPREPLY[*]}"' \
            bash "$completion" "${row%|*}")
        same "completion of ${row%|*}" "$got" "${row#*|}"
    done
fi

# Time. 0x97 and 0xE1 have a weekday, 0x93 has one without a date.
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
t 0 '06 07 08' time encode 0x13 06:07:08
t 0 '06 07 00' time encode 0x13 06:07
t 0 '2024-03-02 00:00:00 Sat 1709334000' time add 2024-01-31 1 month
t 0 '2024-03-05 06:06:58 Tue *' time add '2024-03-05 06:07:08' -10 seconds
t 1 'mavutil: there is no such time' time add 2024-03-05 0x7FFFFFFF years
t 0 '2024-03-05 00:00:00 Tue 1709593200' time trim 20240305060708 day
t 0 -64 time diff 2024-03-05 2024-01-01 days
t 0 '2024-03-05 08:00:00 Tue *
2024-03-06 08:00:00 Wed *' time next 1 day 8 hours 2 2024-03-05T06:07
t 0 '2024-03-05 06:15:00 Tue *' time next 15 minutes 0 second 1 2024-03-05T06:07
t 0 '{"time":"2024-03-05 00:00:00","weekday":"Tue","seconds":1709593200}' \
    time trim --json 20240305 day
t 1 '{"invalid":"2024-02-31 00:00:00"}' time decode --json 23 20 24 02 31 00 00 00
t 0 '{"record":"24 03 05"}' time encode 0x46 2024-03-05 --json
t 0 '{"count":1}' time diff --json 2024-03-05 2024-03-06 day

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
bytes1    2
          61 1B                                            |a.|
bytes2    0
bytes3    1
          7A                                               |z|*' \
    record "$head" 02000000 00000000 01000000 611B 7A
json='{"type":3,"first":1,"second":-2,"created":86400,"age":[1-9]*,"lifetime":5,"inForce":false,'
t 1 "*$json"'"bytes1":"61 1B","bytes2":"","bytes3":"7A"}*' \
    record --json "$head" 02000000 00000000 01000000 611B 7A
zero=00000000
t 0 '*created   0 -
age       0
lifetime  0
in-force  yes*' record $zero $zero 01000000 $zero $zero $zero $zero $zero
t 1 '*mavutil: no record in the last 33 bytes' record "$head" ff000000 0000000000000000 00
t 1 'mavutil: no record on standard input' record
printf '%s\n' "$head $zero$zero$zero" 'no hex' "$head $zero$zero$zero" | ./mavutil record >got 2>&1
same 'record: lines of input' "$?,$(grep -c in-force got),$(grep mavutil got)" \
    '1,2,mavutil: line 2 of standard input is no hex'

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
t 0 '00000010  00 *
\*
00000030' hex /dev/zero 16 32
same 'hex: a pipe' "$({ printf ABC; sleep 0.1; printf D; } | ./mavutil hex - 2 | head -n 1)" \
    '00000002  43 44                                            |CD|'
truncate -s 5G sparse && printf X >>sparse
t 0 '140000000  58 *
140000001' hex sparse 0x140000000
printf 123456789 >nine
t 1 'mavutil: none: No such file or directory
CRC-16/IBM-3740 29B1 9 nine
CRC-16/XMODEM 31C3 9 nine
CRC-16/IBM-3740 FFFF 0 -
CRC-16/XMODEM 0000 0 -' crc none nine -
mkdir -p tree/a/b && printf 123 >tree/a/b/f && ln -s a tree/l
printf 12345 >"$(printf 'tree/"\n\033\377\303\244w')"
t 0 "*           3 */tree/a/b/f*" scan tree
t 0 "*           5 */tree/\"...$(printf '\303\244')w*" scan tree
t 0 '*           9 total' scan tree
t 0 '*           6 total' scan tree 0
t 0 '*{"path":"*/tree/a/b/f","type":"file","bytes":3}*{"total":9,"missing":0}' scan --json tree
json='*/tree/\\"\\u000a\\u001b\\ufffd'$(printf '\303\244')
t 0 "$json"'w","pathHex":"* 2F 22 0A 1B FF C3 A4 77",*' scan --json tree
t 0 '*{"path":"*/tree/l","type":"link","bytes":1}*' scan --json tree
t 1 'mavutil: nine: Not a directory' scan nine
t 1 'mavutil: none: No such file or directory' scan none

# Every verb notices output that cannot be written; when its reader has gone, an endless verb ends.
mkdir logs && echo x >logs/x.log
for words in help 'queue -h' --version 'trace show logs' 'time trim now day' 'mask count 1' \
    'hex /dev/urandom' 'crc zeros' 'scan tree' 'shm show zeros' \
    'time next 1 second 0 second 999999999' \
    "record $zero $zero 01000000 $zero $zero $zero $zero $zero"; do
    # shellcheck disable=SC2086 # words
    ./mavutil $words >/dev/full 2>full
    same "$words >/dev/full" "$?:$(sed 's/: No space.*//' full)" \
        '1:mavutil: the results could not be written'
done
same 'a closed output' "$(./mavutil help 2>&1 >&-)" 'mavutil: standard output is closed'
got=$( (trap '' PIPE && ./mavutil hex /dev/urandom 2>gone; echo $? >>gone) | head -n 1)
case $(cat gone) in
*'could not be written'*1) ;;
*) complain 'a reader that has gone' "$got $(cat gone)" 'not written, 1' ;;
esac

# Logs: by their times, the backup first, without what fills it up; a line that steers a terminal or
# has no end. Stamps have no year: a log ends in the year in which it was changed last.
mkdir traces
{ printf 'kor(12-31 23:59:58):a1\nmore of a1\n' && head -c 1000 /dev/zero; } >traces/a.log_bak
printf 'kor(%s):%b' '01-01 00:00:02' 'a2\033[2J\302\233\n\n' '12-31 23:59:59' 'a3\n' \
    '03-05 06:00:00' end >traces/a.log
printf '12-31 23:59:59\tb1\r\n01-01 00:00:01\tb2\n' >traces/b.log
printf '12-30 00:00:00\tc1\n' >traces/c.log
echo 'not a log' >traces/text
touch -d '2024-03-05 06:07:08' traces/a.log
touch -d '2024-01-01 00:00:01' traces/b.log
touch -d '2024-12-30 00:00:00' traces/c.log
all='a.log: kor(12-31 23:59:58):a1
a.log: more of a1
b.log: 12-31 23:59:59	b1
b.log: 01-01 00:00:01	b2
a.log: kor(01-01 00:00:02):a2.\[2J.
a.log: 
a.log: kor(12-31 23:59:59):a3
a.log: kor(03-05 06:00:00):end
c.log: 12-30 00:00:00	c1'
t 0 "$all" trace show traces
t 0 'a.log: kor(03-05 06:00:00):end
c.log: 12-30 00:00:00	c1' trace show -n 2 traces
t 0 'a.log: kor(01-01 00:00:02):a2*end
c.log: *c1' trace show --since 2024-01-01T00:00:02 traces
t 0 'b.log: 12-31 23:59:59	b1' \
    trace show -n1 -gb1 --since=2023-12-31T23:59:59 traces/a.log traces/b.log
t 0 'kor(12-31 23:59:58):a1
more of a1*' trace show traces/a.log_bak
# A damaged stamp is no turn of the year.
mkdir damaged
printf '11-20 00:00:00\td1\n99-99 99:99:99\td2\n11-20 00:00:01\td3\n' >damaged/d.log
touch -d '2026-11-20 00:00:01' damaged/d.log
t 0 '*d1*d2*d3' trace show --since 2026-11-20T00:00:00 damaged/d.log
t 0 'x' trace show logs
t 1 'mavutil: no such line' trace show -g ERROR traces
t 1 'mavutil: none.log: No such file or directory
x' trace show none.log logs/x.log
t 1 'mavutil: tree: no logs in it' trace show tree
if [ "$lesser" != none ]; then
    as=$lesser
    mkdir logs/dir tree/shut && chmod 0 logs/x.log tree/shut
    t 1 'mavutil: logs/x.log: Permission denied' trace show logs
    t 1 '*mavutil: */tree/shut: Permission denied*9 total
mavutil: the total lacks 1 entry that could not be read' scan tree
    t 1 'mavutil: tree/shut: Permission denied' scan tree/shut
    t 1 'mavutil: tree/shut: Permission denied' trace show tree/shut
    chmod 700 tree/shut
    as=
else
    echo 'mavutil: what is not permitted was not tested'
fi

# Queues, on flags that nobody uses; without /root there are none.
# claim: a flag without a queue, which no other run of this test takes.
claim() {
    for free in $(seq 128 255); do
        mkdir "${TMPDIR:-/tmp}/mavutil-flag-$free" 2>/dev/null || continue
        flags="$flags $free"
        ./mavutil queue peek "$free" 2>&1 | grep -q 'has no queue' && return 0
        flags=${flags% *}
        rmdir "${TMPDIR:-/tmp}/mavutil-flag-$free"
    done
    exit 1
}
if ./mavutil queue peek 255 2>&1 | grep -q 'without /root'; then
    t 1 '*mavutil: no keys of queues without /root: *' queue list
    t 1 'mavutil: no keys of queues without /root: *' queue send 255 1 01
else
    claim
    flag=$free
    for verb in peek recv clear remove; do
        t 1 "mavutil: flag $flag has no queue" queue $verb "$flag"
    done
    ./mavutil queue watch "$flag" 20 >watched 2>&1 &
    pids="$pids $!" watch=$!
    until_there watched '^#flag'
    t 0 '' queue send "$flag" 3 68 12 01
    t 0 '' queue send "$(printf 0x%02x "$flag")" 2 AABB
    t 0 '' queue send "$flag" 2 "$(head -c 80 /dev/zero | tr '\0' 1)"
    t 0 "*
  $flag -     3     45  *" queue list
    # qemu's user emulation leaves the upper halves of 64-bit times unset.
    json='"permitted":true,"messages":3,"bytes":45,"limit":*,"receiver":0,"lastSent":*'
    t 0 "*{\"flag\":$flag,$json,\"lastReceived\":*}*" queue list --json
    if ./mavutil queue peek "$flag" 2>&1 | grep -q MSG_COPY; then
        t 1 'mavutil: this kernel shows no message without taking it *' queue peek "$flag"
    else
        t 0 '3 3 68 12 01
2 2 AA BB
2 40 11 11 * 11' queue peek "$flag"
        t 0 '{"type":3,"length":3,"payload":"68 12 01"}
{"type":2,"length":2,"payload":"AA BB"}
*' queue peek --json "$flag"
    fi
    until_there watched "^  $flag -     3     45 "
    t 1 "mavutil: flag $flag: no message waits that 1 selects" queue recv "$flag" 1
    t 0 '2 2 AA BB' queue recv "$flag" -9
    t 0 '3 3 68 12 01' queue recv "$flag"
    t 0 '' queue clear "$flag" 2
    t 1 "mavutil: flag $flag: no message *" queue peek "$flag"
    t 0 '' queue remove "$flag"
    until_there watched "^  $flag - removed"
    kill -INT $watch
    wait $watch || complain 'queue watch, interrupted' $? 0

    # A queue that this user may not use, as another user's; its key is that of ftok().
    claim
    # shellcheck disable=SC2016 # perl's variables
    if [ "$lesser" != none ] && perl -e '($d, $i) = stat "/root";
        $key = ($ARGV[0] << 24) | (($d & 255) << 16) | ($i & 65535);
        msgget($key < 1 << 31 ? $key : $key - (1 << 32), 01000) // exit 1' "$free"; then
        as=$lesser
        for words in "peek $free" "recv $free" "clear $free" "remove $free" "send $free 1 01"; do
            # shellcheck disable=SC2086 # words
            t 1 "mavutil: flag $free: not permitted, *" queue $words
        done
        t 0 "*
  $free - not permitted*" queue list
        t 0 '*{"flag":'"$free"',"permitted":false}*' queue list --json
        as=
    fi
fi

# A region that changes, and grows.
./mavutil shm watch zeros 20 >watched 2>&1 &
pids="$pids $!" watch=$!
./mavutil shm watch zeros 20 9 56 >part 2>&1 &
pids="$pids $!"
for _ in $(seq 200); do
    printf A | dd of=zeros bs=1 seek=9 conv=notrunc 2>/dev/null
    sleep 0.05
    grep -q '00 -> 41$' watched && grep -q '00 -> 41$' part && break
    printf '\0' | dd of=zeros bs=1 seek=9 conv=notrunc 2>/dev/null
    sleep 0.05
done
printf BC >>zeros
until_there watched ' size 65 -> 67$'
same 'shm watch, a part' "$(grep -c -e size -e 00000041 part)" 0
got=$(grep -l '^[0-9:]* 00000009 00 -> 41$' watched part | tr '\n' ' ')
same 'shm watch' "$got" 'watched part '
kill -TERM $watch
wait $watch || complain 'shm watch, terminated' $? 0

[ $failures -eq 0 ] && echo "mavutil: $count command lines do what they should"
