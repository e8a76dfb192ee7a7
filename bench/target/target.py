#!/usr/bin/env python3
"""./run bench target: counts the instructions of each job on the target's processor.

User instructions are counted by a plugin of qemu-user, one by one: the same number in every run.
The jobs that work with the kernel also run in an emulated machine whose clock advances by
instructions; that repeats within half a percent, as the timer and the allocators of the kernel
are in it.
"""

import argparse
import pathlib
import re
import subprocess
import sys
import tempfile

PROJECT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path[:0] = [str(PROJECT / "bench"), str(PROJECT / "machine")]
import chart  # pylint: disable=wrong-import-position

TOLERANCE = 1.03
KERNEL_JOBS = ("trace line", "general-log line", "send and receive", "message shown", "tree walked",
               "file copied", "file filled")
# How many units of a job's size are a byte.
UNITS = {"hex rendering": 1, "CRC-16, byte by byte": 1, "hex text to bytes": 2,
         "text split into fields": 1, "range of bits set": 8, "one bit found at the end": 8,
         "zeros copied and cut off": 8, "bits counted": 8, "union of bits": 8}
# The limit of a job: instructions for the whole, for a byte, or as a multiple of the floor's.
AIMS = {"trace message under the threshold": ("whole", 40), "hex rendering": ("byte", 12),
        "bits counted": ("byte", 3.5), "hex text to bytes": ("byte", 12),
        "CRC-16, byte by byte": ("floor", 1)}
KERNEL_AIMS = {"trace line to a public file": 1.35, "send and receive 64 B": 1.25,
               "send and receive 1 KiB": 1.25, "send and receive 8000 B": 1.25}


class Row:
    """A job at a size: for each way to do it, instructions and system calls of one time."""

    def __init__(self, job, size, units):
        self.job, self.size, self.units = job, size, units
        self.instructions, self.calls = {}, {}

    def per_byte(self):
        unit = UNITS.get(self.job)
        return self.instructions["ours"] * unit / self.units if unit else None


def rows_of(lines):
    """{(job, size): Row} of lines NUMBER|JOB|SIZE|UNITS|WAY|TIMES|INSTRUCTIONS CALLS; the first
    line is what a loop takes that does nothing."""
    rows, nothing = {}, None
    for line in lines:
        _, job, size, units, way, times, counts = line.split("|")
        instructions, calls = map(float, counts.split())
        times = int(times)
        if nothing is None:
            nothing = instructions / times
        if not size: # used to correct the other numbers
            continue
        row = rows.setdefault((job, size), Row(job, size, float(units)))
        row.instructions[way] = instructions / times - nothing
        row.calls[way] = calls / times
    return rows


def count_user(build, text):
    plugin = build / "count.so"
    subprocess.run(["cc", "-shared", "-fPIC", "-O2", "-o", plugin,
                    PROJECT / "bench/target/count.c"], check=True)
    # Without an environment, because searching it would be counted too.
    done = subprocess.run(["qemu-mipsel", "-plugin", plugin, build / "bench/target_bench", *text],
                          env={}, check=False, capture_output=True, text=True)
    names, counts = done.stdout.splitlines(), done.stderr.splitlines()
    if done.returncode != 0 or len(names) != len(counts):
        sys.exit(f"target_bench ends with {done.returncode}:\n{done.stderr[-2000:]}")
    return rows_of(f"{name}|{count}" for name, count in zip(names, counts))


def count_with_kernel(build, kernel, text):
    """The same in a machine: the program is its first process, its files are in memory."""
    from terminal import QEMU, Archive  # pylint: disable=import-outside-toplevel
    archive = Archive()
    for folder in ("dev", "tmp", "root"):
        archive.folder(folder)
    archive.console("dev/console")
    archive.file("init", (build / "bench/target_bench").read_bytes(), 0o755)
    with tempfile.TemporaryDirectory() as folder:
        initrd = pathlib.Path(folder) / "initrd"
        initrd.write_bytes(archive.bytes())
        done = subprocess.run(
            [*QEMU, "-nographic", "-icount", "shift=2", "-rtc", "base=2024-03-05,clock=vm",
             "-kernel", kernel, "-initrd", initrd,
             "-append", " ".join(["console=ttyS0 quiet panic=-1 norandmaps -- --clock", *text])],
            stdin=subprocess.DEVNULL, check=True, capture_output=True, text=True)
    lines = re.findall(r"^\d{3}\|.*\|\d+\|\d+\r?$", done.stdout.replace("\r", ""), re.M)
    if len(lines) < 2 or "done" not in done.stdout:
        sys.exit(f"the machine did not finish:\n{done.stdout[-2000:]}")
    times, elapsed = map(int, lines[1].split("|")[-2:])
    unit = elapsed / times / 1e6
    fields = [line.rsplit("|", 1) for line in lines]
    return rows_of(f"{name}|{int(elapsed) / unit} 0" for name, elapsed in fields)


def number(value):
    return f"{value:,.0f}" if value >= 99.5 else f"{value:.1f}"


def rounded(value):
    """Three digits, which are the same in every run, or nearly."""
    return f"{float(f'{value:.3g}'):,.0f}"


def table(head, lines):
    return "\n".join(["| " + " | ".join(line) + " |"
                      for line in [head, ["---"] * len(head), *lines]])


def verdict(value, limit):
    return "yes" if value <= limit else "NO"


def user_table(rows):
    lines = []
    for row in rows.values():
        ours, floor, byte = row.instructions.get("ours"), row.instructions.get("floor"), None
        if ours is None:
            continue
        byte = row.per_byte()
        kind, limit = AIMS.get(row.job, (None, None))
        value = {"whole": ours, "byte": byte, "floor": ours / floor if floor else None}.get(kind)
        small = kind == "byte" and row.units / UNITS[row.job] < 1024  # the call itself weighs more
        aim = "" if value is None or small else \
            {"whole": f"{limit:g}", "byte": f"{limit:g} a byte",
             "floor": f"{limit:g} x floor"}[kind]
        lines.append([row.job, row.size, number(ours), number(floor) if floor else "-",
                      f"{ours / floor:.2f}" if floor else "-",
                      f"{byte:.2f}" if byte else "-",
                      f"{row.calls['ours']:.0f}" if row.calls["ours"] else "-", aim,
                      verdict(round(value, 2), limit) if aim else ""])
    return table(["job", "size", "ours", "floor", "ours/floor", "a byte", "system calls", "aim",
                  "met"], lines)


def kernel_table(rows, user):
    lines = []
    for key, row in rows.items():
        ours, floor = row.instructions["ours"], row.instructions["floor"]
        limit = KERNEL_AIMS.get(row.job)
        lines.append([row.job, row.size, f"{user[key].calls['ours']:.0f}",
                      f"{user[key].calls['floor']:.0f}", rounded(ours), rounded(floor),
                      f"{ours / floor:.2f}", f"{limit:g} x floor" if limit else "",
                      verdict(round(ours / floor, 2), limit) if limit else ""])
    return table(["job", "size", "system calls", "floor's", "ours", "floor", "ours/floor", "aim",
                  "met"], lines)


def kept(text, name, column):
    """{(job, size): instructions} of a table of the page."""
    part = text.split(f"<!-- {name}:", 1)[1].split("<!-- end", 1)[0]
    lines = [[cell.strip() for cell in line.strip("|").split("|")]
             for line in part.splitlines() if line.startswith("|")]
    at = lines[0].index(column)
    return {(line[0], line[1]): float(line[at].replace(",", "")) for line in lines[2:]}


def grown(text, name, rows):
    """Prints which rows have grown against the page; true when some have, or are missing."""
    old = kept(text, name, "ours")
    bad = False
    for key, row in rows.items():
        if "ours" not in row.instructions:
            continue
        now = row.instructions["ours"]
        if key not in old:
            print(f"{name}: {', '.join(key)} is not in the table: keep it by --keep")
            bad = True
        # A row of some instructions is kept with one decimal.
        elif now > old[key] * TOLERANCE + 0.1:
            print(f"{name}: {', '.join(key)} takes {number(now)}, {number(old[key])} before")
            bad = True
    for key in old.keys() - rows.keys():
        print(f"{name}: {', '.join(key)} is no longer measured")
        bad = True
    return bad


def main():
    parser = argparse.ArgumentParser(prog="./run bench target", description=__doc__)
    parser.add_argument("--check", action="store_true",
                        help="end with 1 when a row takes over 3%% more than the page says")
    parser.add_argument("--keep", action="store_true",
                        help="write the tables into docs/performance.md")
    parser.add_argument("text", nargs="?", help="take only the jobs with TEXT in their names")
    place = parser.add_argument_group("set by ./run")
    place.add_argument("--build", type=pathlib.Path, required=True, help="the program")
    place.add_argument("--kernel", type=pathlib.Path, required=True, help="of the machine")
    options = parser.parse_args()
    if options.text and (options.check or options.keep):
        parser.error("--check and --keep take all jobs, so leave out TEXT")
    text = [options.text] if options.text else []
    user = count_user(options.build, text)
    both = {key: row for key, row in count_with_kernel(options.build, options.kernel, text).items()
            if key in user and row.job.startswith(KERNEL_JOBS)}
    tables = {"target": (user, user_table(user)), "kernel": (both, kernel_table(both, user))}
    page = chart.PAGE.read_text(encoding="utf-8")
    bad = False
    for name, (rows, shown) in tables.items():
        if options.check:
            bad = grown(page, name, rows) or bad
        else:
            print(shown + "\n")
        if options.keep:
            page = chart.put(page, name, shown)
    if options.keep:
        chart.PAGE.write_text(page, encoding="utf-8")
    elif options.check and not bad:
        print("no row takes over 3% more than docs/performance.md says")
    sys.exit(1 if bad else 0)


if __name__ == "__main__":
    main()
