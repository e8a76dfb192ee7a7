"""Tests on the emulated terminal, for behaviour that only a whole machine can show.

Each prints its figures; docs/reliability.md explains them.
"""

import argparse
import collections
import concurrent.futures
import json
import os
import pathlib
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import traceback

import terminal
from terminal import Failure, Machine

# The kernel writes back what is 30 s old, and looks every 5 s. Here it is 2 s and 0.5 s, so that a
# cut after seconds finds on a mount without sync what a cut after a minute finds in real use.
SHORT_WRITE_BACK = """echo 200 >/proc/sys/vm/dirty_expire_centisecs
echo 50 >/proc/sys/vm/dirty_writeback_centisecs
"""
LOOK = """
look() { # NAME DEVICE OPTIONS CHECK TRACE GENERAL REGION COPY
    echo "look $1"
    device=$2
    if [ "$4" = check ]; then
        fsck.fat -a -w "$device" >/tmp/fsck 2>&1
        echo "fsck $?"
    fi
    insert_one_card "$device" "$3"
    shift 4
    if grep -q "^$device /mnt/sd " /proc/mounts; then
        echo "mounted 1"
        find /mnt/sd >/tmp/names 2>/tmp/errors
        echo "unreadable $(grep -c . /tmp/errors)"
        cuts look "$@"
        echo "read-only $(grep -c "^$device /mnt/sd vfat ro" /proc/mounts)"
        umount /mnt/sdcard
        umount /mnt/sd
    fi
    echo "looked"
}
write() { # DEVICE OPTIONS: with mounts that nobody else sees
    unshare -m sh -c ". /etc/cards.sh && insert_one_card $1 $2 && cuts write $2" &
}
"""
MOUNTS = ["sync", "flush", "defaults"]
CHECKS = {"": "as it is", "check": "after fsck.fat"}
STEPS = ["trace", "general", "region", "copy"]


class Cuts:
    """Power cuts, one after the other, with a card for each mount. A boot looks at the cards of
    the cut before, as they are and, on copies, after fsck.fat; then it works on new cards until
    its power is cut."""

    def __init__(self, image, numbers, seed, record):
        self.image = image
        self.numbers = numbers
        self.seed = seed
        self.record = record
        self.folder = pathlib.Path(tempfile.mkdtemp(dir=image.scratch, prefix="cuts-"))
        self.found = collections.defaultdict(list)

    def run(self):
        empty = self.folder / "empty.img"
        terminal.new_card(empty, used=24 << 20)
        done = {}
        for number in [*self.numbers, None]:
            task = SHORT_WRITE_BACK + LOOK
            cards = []
            for mount in done:
                cut = self.folder / f"{mount}-cut.img"
                (self.folder / f"{mount}.img").replace(cut)
                for check, kind in CHECKS.items():
                    card = self.folder / f"{mount}-{len(cards)}.img"
                    copy_card(cut, card)
                    numbers = " ".join(done[mount].get(step, "0") for step in STEPS)
                    task += (f"look {mount}-{len(cards)} /dev/mmcblk{len(cards)} {mount} '{check}' "
                             f"{numbers}\n")
                    cards.append(card)
            if number is not None:
                for mount in MOUNTS:
                    task += f"write /dev/mmcblk{len(cards)} {mount}\n"
                    cards.append(self.folder / f"{mount}.img")
                    copy_card(empty, cards[-1])
                task += "wait\n"
            with Machine(self.image, task, cards) as machine:
                self._read_looks(machine, done)
                if number is None:
                    break
                for _ in MOUNTS:
                    machine.wait_for(r" done trace 1\r")
                time.sleep(random.Random(f"{self.seed} {number}").uniform(0, 5))
                machine.cut_power()
                text = machine.console.text.decode(errors="replace")
            done = {mount: {} for mount in MOUNTS}
            for mount, step, count in re.findall(r"(\w+) done (\w+) (\d+)\r\n", text):
                done[mount][step] = count
                done[mount]["last"] = step
            for mount, step in re.findall(r"(\w+) start (\w+) \d+\r\n(?!(?s:.)*\1 done)", text):
                done[mount]["last"] = step
        shutil.rmtree(self.folder)
        return self

    def _read_looks(self, machine, done):
        for mount in done:
            for kind in CHECKS.values():
                text = machine.wait_for(r"look [\w-]+\r\n((?:.*\n)*?)looked", 300)[1].decode()
                found = dict(re.findall(r"([\w-]+) (\w+)\r", text))
                self.found[mount, kind].append({**found, "done": done[mount]})
                with open(self.record, "a", encoding="utf-8") as record:
                    record.write(json.dumps([mount, kind, done[mount], found]) + "\n")


def copy_card(source, destination):
    subprocess.run(["cp", "--sparse=always", source, destination], check=True)


def test_cuts(image, options):
    """Power cuts: what is lost, mount by mount."""
    record = options.scratch / "cuts.jsonl"
    record.write_text("")
    parts = min(options.jobs, options.cuts)
    jobs = [Cuts(image, range(options.cuts)[part::parts], options.seed, record)
            for part in range(parts)]
    found = collections.defaultdict(list)
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        for cuts in pool.map(Cuts.run, jobs):
            for kind, results in cuts.found.items():
                found[kind] += results
    print(f"{options.cuts} cuts, seed {options.seed}; how many had it, and the most lines in one")
    print_cuts(found)
    broken = [f"{mount}, {kind}: {promise} ({result})" for (mount, kind), results in found.items()
              for result in results for promise in broken_promises(mount, kind, result)]
    if broken:
        raise Failure("after a cut:\n" + "\n".join(broken))


def broken_promises(mount, kind, result):
    """What docs/reliability.md promises after a cut, and `result` does not show."""
    # Without sync or flush the card may have become read-only, and a folder that was new may have
    # foreign bytes in it, which fsck.fat does not repair.
    unreadable = result.get("unreadable") not in (None, "0")
    if mount == "defaults" and (kind == CHECKS[""] or unreadable):
        return []
    wanted = dict.fromkeys(("mounted", "again-trace", "again-general", "again-region"), "1")
    done = result["done"]
    if mount == "sync":
        wanted |= dict.fromkeys(("general-lost", "trace-foreign", "general-foreign"), "0")
        if done["last"] != "rotation":
            wanted["trace-lost"] = "0"
    if mount != "defaults":
        # After "general" comes the next save, which may be half done.
        if "region" in done and (done["last"], result.get("region")) != ("general", "damaged"):
            wanted["region"] = "good"
        if "copy" in done and done["last"] != "copy":
            wanted["copy"] = "good"
    return [f"{key} {result.get(key)}, not {value}" for key, value in wanted.items()
            if result.get(key) != value]


def test_promises(*_):
    """The judgement of power cuts: made-up results."""
    good = {"mounted": "1", "unreadable": "0",
            "again-trace": "1", "again-general": "1", "again-region": "1",
            "trace-lost": "0", "general-lost": "0", "trace-foreign": "0", "general-foreign": "0",
            "region": "good", "copy": "good"}
    for last, mounts, change in (
            ("trace", "", {}),
            ("trace", "sync flush defaults", {"again-region": "0"}),
            ("trace", "sync flush defaults", {"again-trace": None}),
            ("trace", "sync flush", {"again-trace": "0", "unreadable": "31"}),
            ("trace", "sync flush defaults", {"mounted": None, "unreadable": None}),
            ("trace", "sync", {"trace-lost": "1"}),
            ("rotation", "", {"trace-lost": "40"}),
            ("trace", "sync", {"general-lost": "1"}),
            ("trace", "sync", {"trace-foreign": "1"}),
            ("trace", "sync flush", {"region": "old"}),
            ("general", "sync flush", {"region": "missing"}),
            ("region", "sync flush", {"region": "damaged"}),
            ("general", "", {"region": "damaged"}),
            ("region", "sync flush", {"copy": "damaged"}),
            ("region", "sync flush", {"copy": "missing"}),
            ("copy", "", {"copy": "missing"})):
        done = {"trace": "9", "general": "9", "region": "9", "copy": "8", "last": last}
        found = [mount for mount in MOUNTS
                 if broken_promises(mount, "after fsck.fat", {**good, **change, "done": done})]
        expect(f"judged bad, {change} after {last}", mounts, " ".join(found))


def print_cuts(found):
    """The table, a row for each mount and each way to look at it."""
    def lost(rotation):
        return lambda r: (int(r.get("trace-lost", 0))
                          if (r["done"]["last"] == "rotation") == rotation else 0)

    columns = {
        "not mounted": lambda r: r.get("mounted") != "1",
        "trace lost": lost(False),
        "lost in a rotation": lost(True),
        "log lost": lambda r: int(r.get("general-lost", 0)),
        "torn": lambda r: int(r.get("trace-torn", 0)) + int(r.get("general-torn", 0)),
        "foreign": lambda r: int(r.get("trace-foreign", 0)) + int(r.get("general-foreign", 0)),
        "region old": lambda r: r.get("region") == "old",
        "rejected": lambda r: r.get("region") == "damaged",
        "missing": lambda r: r.get("region") == "missing",
        "copy damaged": lambda r: r.get("copy") == "damaged" and r["done"]["last"] != "copy",
        "unreadable": lambda r: r.get("unreadable", "0") != "0",
        "read-only": lambda r: r.get("read-only") == "1",
        "silent": lambda r: r.get("mounted") == "1" and any(
            r.get(key) != "1" for key in ("again-trace", "again-general", "again-region")),
    }
    head = ["mount", "looked at", "cuts", "in a rotation", *columns]
    print("| " + " | ".join(head) + " |")
    print("|---" * len(head) + "|")
    for (mount, kind), results in sorted(found.items(), key=lambda item: MOUNTS.index(item[0][0])):
        rotations = sum(result["done"]["last"] == "rotation" for result in results)
        row = [mount, kind, str(len(results)), str(rotations)]
        for value in columns.values():
            values = [value(result) for result in results]
            hit = sum(value > 0 for value in values)
            row.append(f"{hit} ({max(values)})" if max(values, default=0) > 1 else str(hit))
        print("| " + " | ".join(row) + " |")


def expect(what, wanted, actual):
    if actual != wanted:
        raise Failure(f"{what}: {actual}, not {wanted}")


def figures(text):
    """The lines "NAME VALUE" that a program has printed."""
    return dict(re.findall(r"^([\w-]+) ([^\r\n]+)\r?$", text, re.MULTILINE))


def run(image, task, cards=(), files=None, seconds=600, wanted=0):
    """Runs a task to its end. Returns what it wrote to the console."""
    with Machine(image, task, cards, files, quick=True) as machine:
        status = machine.status(seconds)
        text = machine.console.text.decode(errors="replace")
        if status != wanted:
            raise Failure(f"status {status}, not {wanted}:\n{text[-4000:]}")
        return text


def card(image, name="test-card.img", **options):
    path = image.scratch / name
    terminal.new_card(path, **options)
    return path


def toybox(image, name):
    """The files of toybox, which is then the command `name`."""
    [library] = (image.packages / "libcrypt1").glob("lib/mipsel-linux-gnu/libcrypt.so.1.*")
    return {name: (image.packages / "toybox/bin/toybox").read_bytes(),
            "lib/libcrypt.so.1": library.read_bytes()}


def test_suite(image, _):
    """The suite, on the terminal's kernel and libc."""
    tests = terminal.PROJECT / "tests"
    programs = sorted(path.relative_to(image.build) for path in image.build.glob("tests/**/*_test")
                      if path.is_file())
    expect("test programs are built", True, len(programs) > 5)
    files = {f"opt/tests/{path.name}": image.stripped(str(path)) for path in programs}
    # What the programs read has the path that it had where they were compiled.
    for path in [tests / "faults/outcomes.txt", *tests.glob("fuzz/corpus/*/*")]:
        files[str(path)] = path.read_bytes()
    # A test that starts mavutil does it as where it was compiled, by the emulator of programs; here
    # that name starts the program itself.
    files["bin/qemu-mipsel"] = '#!/bin/sh\nshift 2\nexec "$@"\n'
    files[str(image.build / "tools/mavutil")] = image.stripped("tools/mavutil")
    files["opt/tests/mavutil_test.sh"] = (tests / "tools/mavutil_test.sh").read_bytes()
    # The demonstration's check puts a program of its own before `unshare`, which BusyBox's shell
    # does not find, and needs `flock`, which this BusyBox lacks.
    files["opt/dash"] = (image.packages / "dash/bin/dash").read_bytes()
    files |= toybox(image, "bin/flock")
    task = """cd /tmp
check() { # NAME COMMAND...
    name=$1
    shift
    "$@" >/tmp/out 2>&1
    status=$?
    echo "suite $name $status $(sed -n 's/^\\[  PASSED  \\] \\([0-9]*\\) test.*/\\1/p' /tmp/out)"
    [ $status = 0 ] || grep -v '^\\[ *\\(OK\\|RUN\\|---*\\) *\\]' /tmp/out | tail -n 60
}
for program in /opt/tests/*_test; do check ${program##*/} $program; done
check mavutil sh /opt/tests/mavutil_test.sh /bin/mavutil
ln -sf /opt/dash /bin/sh
check demonstration /opt/dash /opt/terminal/check.sh /bin
"""
    total = 0
    scripts = 0
    failed = []
    with Machine(image, task, files=files) as machine:
        for _ in range(len(programs) + 2):
            match = machine.wait_for(r"\nsuite (\S+) (\d+) (\d*)\r", 600)
            name, status, passed = (part.decode() for part in match.groups())
            total += int(passed or 0)
            is_script = name in ("mavutil", "demonstration")
            scripts += is_script and status == "0"
            failed += [name] if status != "0" or not (passed or is_script) else []
            print(f"{name}: {passed + ' passed, ' if passed else ''}status {status}", flush=True)
        machine.status()
        text = machine.console.text.decode(errors="replace")
    print(f"{total} tests in {len(programs)} programs and {scripts} scripts passed")
    if failed:
        raise Failure(f"failed: {' '.join(failed)}\n{text}")


def test_clock(image, _):
    """The clock is set: by Set_SysTime, and by Set_SYS_HWClock with the `date` of the terminal."""
    # A shell that, unlike BusyBox's, has no `date` of its own.
    files = {"opt/dash": (image.packages / "dash/bin/dash").read_bytes(),
             "opt/coreutils/date": (image.packages / "coreutils/bin/date").read_bytes(),
             "opt/wrapper/date": (terminal.HERE / "date.sh").read_bytes(),
             **toybox(image, "opt/toybox/date")}
    task = """export TZ=CET-1CEST,M3.5.0,M10.5.0/3
for digits in 240305060708 370630235958; do
    probe systime $digits
    date '+kernel %F %T'
done
try() { # NAME FOLDER
    /bin/busybox date 010100002024.00 >/dev/null
    echo "date of $1"
    PATH=$2:/bin probe hwclock 240305060708 2>&1
}
try BusyBox /bin
ln -sf /opt/dash /bin/sh
for name in coreutils toybox wrapper; do try $name /opt/$name; done
"""
    text = run(image, task, files=files)
    times = re.findall(r"^(?:now|kernel) (\S+ \S+)\r$", text, re.MULTILINE)
    expect("times shown", 8, len(times))
    for i, wanted in enumerate(("2024-03-05 06:07:0", "2037-06-30 23:59:5")):
        for time_shown in times[2 * i:2 * i + 2]:
            expect("the time", wanted, time_shown[:len(wanted)])
        print(f"Set_SysTime: the clock is at {wanted}x")
    tries = re.findall(r"date of (\w+)\r\n(.*)\r\n(?:.*\n)*?result (\S+)\r\nnow (.*)\r", text)
    expect("commands tried", ["BusyBox", "coreutils", "toybox", "wrapper"],
           [name for name, *_ in tries])
    for name, said, result, shown in tries:
        moved = shown.startswith("2024-03-05 06:07:0")
        print(f"Set_SYS_HWClock with the date of {name}: the clock is {'' if moved else 'not '}set")
        expect("the result", "0", result)
        expect("the clock is set", name in ("toybox", "wrapper"), moved)
        # A program that cannot start sets no clock either: the others must refuse this time.
        expect(f"refused by {name} ({said})", not moved, "invalid date" in said)


def test_ttys(image, _):
    """Pseudo-terminals: with a reader, without one, and with one that goes away."""
    found = figures(run(image, "setsid probe ttys"))
    print(f"with a reader: {found['arrived']} of 6 messages arrive")
    print(f"without one: of 1000 messages of 204 bytes it keeps {found['kept-bytes']} bytes, the "
          f"slowest took {found['slowest-ms']} ms; read again, it takes the next: {found['again']}")
    print(f"gone: the process lives: {found['alive']}; a controlling terminal: "
          f"{found['controlling']}")
    expect("messages that arrived", "6", found["arrived"])
    expect("a message after the reader is back", "1", found["again"])
    expect("a controlling terminal", "0", found["controlling"])
    if int(found["slowest-ms"]) > 200:
        raise Failure("a message waits for a reader")


def test_card(image, _):
    """The card: good, full, read-only, pulled, missing at boot; one and two."""
    # "mark": the line for the general log is on standard output.
    works = {"mark": "0", "trace": "1", "log": "1", "region": "1", "save": "1", "create": "0",
             "copy": "0"}
    fails = {"mark": "0", "trace": "0", "log": "0", "region": "0", "create": "-1", "copy": "-1"}
    shows = {**fails, "mark": "1"}

    def check(what, wanted, text):
        found = {key: value for key, value in figures(text).items() if key in works}
        found["mark"] = str(int("mark" in found))
        print(f"{what}: {' '.join(f'{key} {value}' for key, value in found.items())}")
        expect(what, wanted, found)

    for mount in MOUNTS:
        path = card(image, size=4 << 20)
        task = f"""insert_one_card /dev/mmcblk0 {mount}
probe work; echo ==
rm -r /mnt/sd/term/common/* /mnt/sdcard/log/*
mkdir /mnt/sd/term/common/trace
for size in 64k 512; do
    dd if=/dev/zero of=/mnt/sd/rest.$size bs=$size 2>/dev/null
done
df -k /mnt/sd; probe work; echo ==
rm /mnt/sd/rest.*
probe work; echo ==
mount -o remount,ro /mnt/sd; probe work
"""
        good, full, emptied, read_only = run(image, task, [path]).split("==\r\n")
        check(f"a good card ({mount})", works, good)
        check(f"a full card ({mount})", fails, full)
        check(f"emptied ({mount})", works, emptied)
        check(f"a read-only card ({mount})", shows, read_only)
        pulled(image, mount, check, works, shows)
    check("no card at boot", shows, run(image, "insert_one_card /dev/mmcblk0 sync; probe work"))
    text = run(image, "insert_card /dev/mmcblk0 sync /mnt/sd; insert_card /dev/mmcblk1 sync "
               "/mnt/sdcard; mkdir -p /mnt/sdcard/log /mnt/sd/term/common/trace; probe work; "
               "find /mnt -name '*.log' | sort", [card(image), card(image, "test-card2.img")])
    check("two cards", works, text)


def pulled(image, mount, check, works, shows):
    path = card(image)
    task = f"""insert_one_card /dev/mmcblk0 {mount}
probe trace 8 &
sleep 2; echo "pull it"
for _ in 1 2 3 4 5 6 7 8 9 0; do [ -b /dev/mmcblk0 ] || break; sleep 0.5; done
probe work; wait
umount -l /mnt/sdcard; umount -l /mnt/sd
echo "put it back"
insert_one_card /dev/mmcblk0 {mount}
echo ==; probe work
"""
    with Machine(image, task, [path]) as machine:
        machine.wait_for("pull it")
        machine.qmp("eject", id="card0", force=True)
        machine.wait_for("put it back")
        machine.qmp("blockdev-change-medium", id="card0", filename=str(path), format="raw")
        expect("the task", 0, machine.status())
        text = machine.console.text.decode(errors="replace")
    before, after = text.split("==\r\n")
    # A file that was open when the card went may stay in the kernel's memory and take lines there.
    kept = {key: figures(before).get(key) for key in ("trace", "log")}
    shown = "0" if kept["log"] == "1" else "1"
    check(f"pulled while a process works ({mount})", {**shows, **kept, "mark": shown}, before)
    expect("the process that worked lives", "1", figures(before).get("alive"))
    check(f"put back and mounted ({mount})", works, after)


def test_memory(image, _):
    """Memory of collector and uplink, static and with the shared library."""
    files = {}
    for program in ("collector", "uplink"):
        for kind in ("static", "shared"):
            files[f"bin/{program}_{kind}"] = image.stripped(f"machine/{program}_{kind}")
    files["lib/libmavkit.so.1"] = image.stripped("libmavkit.so.1")
    task = """insert_one_card /dev/mmcblk0 sync
mkdir /tmp/long; cp /opt/terminal/terminal.conf /tmp/long
for i in 1 2 3 4 5 6 7 8 9; do cp /opt/terminal/day.frames /tmp/long/$i.frames; done
for kind in static shared; do
    uplink_$kind receive /tmp/long /tmp/$kind.shm >/tmp/$kind &
    collector_$kind /tmp/long >/tmp/out &
    for _ in $(seq 600); do # until they work
        [ "$(wc -l </tmp/$kind)" -lt 40 ] || break
        sleep 0.1
    done
    for program in collector uplink; do
        pid=$(pidof ${program}_$kind) || echo "$program has ended"
        awk -v name=$program-$kind '/^Rss/ {rss = $2} /^Private/ {private += $2}
            END {print name, rss, private}' /proc/$pid/smaps_rollup
    done
    wait
done
"""
    found = figures(run(image, task, [card(image)], files))
    print("| program | linked | resident KiB | private KiB |\n|---|---|---|---|")
    for program in ("collector", "uplink"):
        for kind in ("static", "shared"):
            resident, private = found.get(f"{program}-{kind}", "0 0").split()
            print(f"| {program} | {kind} | {resident} | {private} |")
            if not 0 < int(private) < 2048:
                raise Failure("a process works, and takes less than 2 MiB of its own")


def test_month(image, _):
    """A compressed month: the clock jumps, processes work, rotate, restart and are killed."""
    task = """insert_one_card /dev/mmcblk0 sync
mkdir /tmp/demo; cp /opt/terminal/*.frames /tmp/demo
sed 's/^limit=.*/limit=12000/' /opt/terminal/terminal.conf >/tmp/demo/terminal.conf
probe month /tmp/demo
uplink show /tmp/demo /mnt/sd/term/common/meters.shm >/tmp/show 2>&1
echo "region-status $?"
echo "queues $(($(wc -l </proc/sysvipc/msg) - 1))"
echo "processes $(pidof collector uplink | wc -w)"
echo "backups $(ls /mnt/sd/term/common/trace/trace_*.log_bak | wc -l)"
echo "other-files $(find /mnt/sd -type f ! -name '*.log*' ! -name '*.shm' | wc -l)"
"""
    found = figures(run(image, task, [card(image)]))
    print(", ".join(f"{key} {value}" for key, value in found.items()))
    # 30 days with 96 quarters. The hour that daylight saving repeats has points in its first pass
    # only. One start of two programs a day: those of 15 days are killed, those of 15 days finish.
    for what, wanted in (("quarter", 2880), ("daily", 30), ("monthly", 1), ("repeated", 0),
                         ("failures", 0), ("killed", 30), ("finished", 30), ("children", 0),
                         ("descriptors", 0), ("region-status", 0), ("queues", 0), ("processes", 0),
                         ("backups", 3), ("other-files", 0)):
        expect(what, str(wanted), found.get(what))
    # The standard streams, a file that is just written, two names of the folder, and some spare.
    if not 5 <= int(found["most-descriptors"]) <= 10:
        raise Failure("a program of the demonstration keeps descriptors")
    if int(found["pages"]) > 4:
        raise Failure("memory is lost")


def test_command(image, options):
    """`./run terminal -- COMMAND`: what it passes on, and how it ends."""
    # A path that is too long for a socket does no harm.
    scratch = image.scratch / ("a-long-name-" * 10)
    start = [sys.executable, terminal.HERE / "terminal.py", "--build", options.build,
             "--toolchain", options.toolchain, "--packages", options.packages,
             "--scratch", scratch]

    def ends(what, status, shown, *words):
        done = subprocess.run([*start, *words], stdin=subprocess.DEVNULL, check=False, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=300)
        print(f"{what}: status {done.returncode}")
        expect(f"{what}: the status", status, done.returncode)
        expect(f"{what}: '{shown}' in {done.stdout!r}", True, shown in done.stdout)

    with subprocess.Popen([*start, "--", "echo begins; sleep 3; seq 1 200000"], text=True,
                          stdout=subprocess.PIPE) as first:
        expect("the first line", "begins\n", first.stdout.readline())
        ends("a second one at once", 125, "another terminal uses the card", "--fresh", "--", "ls")
        first.stdout.close()
        expect("a reader leaves: the status", 141, first.wait(60))
    ends("words", 3, "a  b\n", "--", "sh", "-c", 'echo "a  b"; exit 3')
    ends("the power goes", 125, "the machine was off before the end", "--", "poweroff -f")
    os.truncate(scratch / "card.img", 0)
    os.truncate(scratch / "card.img", terminal.CARD_SIZE)
    ends("a blank card", 125, "the card cannot be mounted", "--", "echo must not run; exit 0")


def main():
    parser = argparse.ArgumentParser(prog="./run terminal-test", description=__doc__)
    parser.add_argument("--cuts", type=int, default=6, help="power cuts for each mount (6)")
    parser.add_argument("--seed", type=int, default=1, help="of the moments of the cuts (1)")
    parser.add_argument("--jobs", type=int, default=2, help="machines at once (2)")
    parser.add_argument("--only", action="append", choices=[test[5:] for test in TESTS],
                        help="this test alone; may be repeated")
    terminal.add_place(parser)
    options = parser.parse_args()
    image = terminal.make_image(options)
    for program in ("cuts", "probe"):
        image.program(f"machine/{program}", f"bin/{program}")
    image.scratch = scratch_folder(options.scratch)

    def stop(number, _):
        # The emulators end with this program.
        shutil.rmtree(image.scratch, ignore_errors=True)
        os._exit(128 + number)

    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
        signal.signal(number, stop)
    try:
        return run_tests(image, options)
    finally:
        shutil.rmtree(image.scratch)


def scratch_folder(parent):
    """A folder for cards. Removes those of starts that were killed: nobody locks them."""
    for old in parent.glob("test-*"):
        try:
            os.close(terminal.lock(old))
            shutil.rmtree(old)
        except BlockingIOError:
            pass
    # It is locked before it has a name that another start removes.
    new = pathlib.Path(tempfile.mkdtemp(dir=parent, prefix="new-test-"))
    terminal.lock(new)
    return new.rename(new.with_name(new.name.removeprefix("new-")))


def run_tests(image, options):
    failed = []
    for name, test in TESTS.items():
        if options.only and name[5:] not in options.only:
            continue
        started = time.monotonic()
        print(f"== {test.__doc__.splitlines()[0]}", flush=True)
        try:
            test(image, options)
        except Failure as failure:
            print(f"FAILED: {failure}")
            failed.append(name[5:])
        except Exception:  # pylint: disable=broad-except # the other tests still run
            print(f"FAILED: {traceback.format_exc()}")
            failed.append(name[5:])
        print(f"   ({time.monotonic() - started:.0f} s)\n", flush=True)
    if failed:
        print("Failed: " + ", ".join(failed))
    return 1 if failed else 0


TESTS = {test.__name__: test for test in (test_suite, test_clock, test_ttys, test_card,
                                          test_memory, test_month, test_command, test_promises,
                                          test_cuts)}

if __name__ == "__main__":
    sys.exit(main())
