#!/usr/bin/env python3
"""The table of ./run bench: reads Google Benchmark's JSON, or callgrind's dumps of --count."""

import glob
import json
import re
import sys

import chart


def measured(path):
    """{(job, size, units): {who: nanoseconds}} of the medians, likewise of the deviations, and
    {job: target}."""
    with open(path, encoding="utf-8") as file:
        data = json.load(file)
    kinds = {"median": {}, "stddev": {}}
    # As the program lists them.
    for one in sorted(data["benchmarks"], key=lambda one: one["run_name"]):
        rows = kinds.get(one.get("aggregate_name"))
        if rows is None:
            continue
        wall = "/real_time" in one["run_name"]
        _, job, size, units, who = one["run_name"].replace("/real_time", "").split("|")
        value = one["real_time" if wall else "cpu_time"]
        rows.setdefault((job, size, float(units)), {})[who] = value
    targets = {key[7:]: value for key, value in data["context"].items() if key[:7] == "target|"}
    return kinds["median"], kinds["stddev"], targets


def counted(pattern):
    """The same with instructions, without targets: those are of time."""
    rows = {}
    dumps = glob.glob(pattern)
    for path in sorted(dumps, key=lambda name: int(name.rsplit(".", 1)[1])):
        with open(path, encoding="utf-8") as file:
            text = file.read()
        name = re.search(r"^desc: Trigger: Client Request: (.*)$", text, re.M)
        totals = re.search(r"^(?:totals|summary): (\d+)", text, re.M)
        if not name or not totals or "|" not in name.group(1):
            continue
        _, job, size, units, who, times = name.group(1).split("|")
        rows.setdefault((job, size, float(units)), {})[who] = int(totals.group(1)) / int(times)
    return rows, {}


def length(value):
    for unit, factor in (("ns", 1), ("us", 1e3), ("ms", 1e6), ("s", 1e9)):
        if value < 999.5 * factor or unit == "s":
            digits = 2 if value / factor < 10 else 1 if value / factor < 100 else 0
            return f"{value / factor:.{digits}f} {unit}"
    return ""


def number(value):
    return f"{value:,.0f}"


def ratio(a, b):
    return f"{a / b:.2f}" if a and b else "-"


def judge(row, spread, target):
    """Whether each part of a target is met: "floor 1.25", "peer 1.0", "NAME 1.0", "ns 10". What is
    missed by at most 5%, and by less than the repetitions of the two differ, is a tie."""
    ours = row.get("ours")
    if not target or ours is None:
        return "-", ""
    words = target.split()
    verdict = 0
    texts = []
    for what, limit in zip(words[::2], map(float, words[1::2])):
        if what == "ns":
            verdict = max(verdict, 0 if ours < limit else 2)
            texts.append(f"< {limit:g} ns")
            continue
        who = best_peer(row) if what == "peer" else what
        if who not in row:
            continue
        miss = ours - limit * row[who]
        near = min(spread.get("ours", 0) + limit * spread.get(who, 0), 0.05 * limit * row[who])
        verdict = max(verdict, 0 if miss <= 0 else 1 if miss <= near else 2)
        texts.append(f"{limit:g}x {what}")
    return ", ".join(texts) or "-", ("yes", "tie", "NO")[verdict] if texts else ""


def best_peer(row):
    return min((who for who in row if who not in ("ours", "floor")), key=row.get, default=None)


def table(rows, spreads, targets, show):
    head = ["job", "size", "ours", "floor", "best peer", "ours/floor", "ours/peer", "target", "met"]
    lines = [head]
    for key, row in rows.items():
        job, size, _ = key
        ours, floor = row.get("ours"), row.get("floor")
        name = best_peer(row)
        best = row.get(name)
        text, met = judge(row, spreads.get(key, {}), targets.get(job))
        lines.append([job, size, show(ours) if ours else "-", show(floor) if floor else "-",
                      f"{show(best)} {name}" if name else "-", ratio(ours, floor),
                      ratio(ours, best), text, met])
    return markdown(lines)


def markdown(lines):
    return "\n".join("| " + " | ".join(line) + " |"
                     for line in [lines[0], ["---"] * len(lines[0]), *lines[1:]])


def growth(rows):
    """A table of how the cost grows from the smallest to the largest size of each job."""
    jobs = {}
    for (job, size, units), row in rows.items():
        if units and "ours" in row:
            kind = re.sub(r"^[\d,.]+ \S+ ?", "", size) # "sparse" of "1 Mi sparse"
            name = re.sub(r" [\d,.]+ \S*B$", "", job)
            jobs.setdefault((name, kind), []).append((units, row["ours"]))
    lines = [["job", "size x", "cost x"]]
    for (job, kind), points in jobs.items():
        points.sort()
        if len(points) > 1:
            (a, cost), (b, more) = points[0], points[-1]
            lines.append([job + (" " + kind if kind else ""), f"{b / a:,.0f}",
                          f"{more / cost:,.1f}"])
    return markdown(lines)


def main():
    if sys.argv[1] == "--count":
        rows, targets = counted(sys.argv[2])
        shown = {"host": table(rows, {}, targets, number), "growth": growth(rows)}
    else:
        rows, spreads, targets = measured(sys.argv[-1])
        shown = {"host": table(rows, spreads, targets, length), "growth": growth(rows)}
    if sys.argv[1] == "--keep":
        page = chart.PAGE.read_text(encoding="utf-8")
        for name, content in shown.items():
            page = chart.put(page, name, content)
        chart.PAGE.write_text(page, encoding="utf-8")
        chart.main()
    print("\n\n".join(shown.values()))


main()
