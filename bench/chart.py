#!/usr/bin/env python3
"""Draws docs/pictures/speed.svg from the host's table on docs/performance.md: for each row how long
the floor and the best peer take, as a multiple of what ours takes."""

import html
import math
import pathlib
import re
import sys

DOCS = pathlib.Path(__file__).resolve().parent.parent / "docs"
PAGE = DOCS / "performance.md"
ROW, LEFT, PLOT, RIGHT, TOP = 17, 300, 440, 210, 64
LEAST, MOST = 1 / 64, 64  # of the axis; values beyond are drawn at its end
UNITS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
FLOOR, PEER, INK, FAINT = "#8a8a8a", "#c2571a", "#1c1c1c", "#dcdcdc"


def put(page, name, content):
    """The page with the part between the marks of `name` replaced."""
    begin, end = f"<!-- {name}: written by ./run bench -->\n", f"<!-- end of {name} -->"
    head, rest = page.split(begin)
    return head + begin + "\n" + content + "\n\n" + end + rest.split(end, 1)[1]


def nanoseconds(cell):
    match = re.match(r"([\d.]+) (ns|us|ms|s)\b ?(.*)", cell)
    return (float(match[1]) * UNITS[match[2]], match[3]) if match else (None, "")


def rows_of(page):
    """(label, ours as text, floor / ours, peer / ours, peer's name) of each row of the table."""
    part = page.split("<!-- host:", 1)[1].split("<!-- end of host", 1)[0]
    for line in part.splitlines():
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        if len(cells) < 5 or cells[0] in ("job", "") or cells[0].startswith("-"):
            continue
        ours = nanoseconds(cells[2])[0]
        floor = nanoseconds(cells[3])[0]
        peer, name = nanoseconds(cells[4])
        yield (re.sub(r" [\d,.]+ \S*B$", "", cells[0]) + ", " + cells[1], cells[2],
               floor / ours if floor else None, peer / ours if peer else None, name)


def place(ratio):
    share = math.log(min(max(ratio, LEAST), MOST) / LEAST) / math.log(MOST / LEAST)
    return LEFT + PLOT * share


def text(x, y, words, anchor="start", colour=INK):
    return (f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}" fill="{colour}">'
            f"{html.escape(words)}</text>")


def draw(rows):
    rows = list(rows)
    height = TOP + ROW * len(rows) + 40
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{LEFT + PLOT + RIGHT}" '
           f'height="{height}" font-family="sans-serif" font-size="11" role="img">',
           "<title>The floor and the best peer beside mavkit, row by row</title>",
           '<rect width="100%" height="100%" fill="#ffffff"/>',
           text(12, 20, "How long the floor (grey) and the best peer (orange) take, as a multiple "
                        "of mavkit's own time."),
           text(12, 36, "Right of the line they are slower than mavkit, left of it faster. What is "
                        "beyond the scale stands at its end.")]
    out.append(text(LEFT + PLOT + 12, TOP - 8, "mavkit's time; the best peer"))
    bottom = TOP + ROW * len(rows)
    for exponent in range(-6, 7, 2):
        x = place(2.0 ** exponent)
        words = f"{2 ** exponent}x" if exponent >= 0 else f"1/{2 ** -exponent}"
        out.append(f'<path d="M{x:.0f} {TOP - 4}V{bottom}" stroke="'
                   f'{INK if exponent == 0 else FAINT}"/>')
        out.append(text(x, bottom + 16, "mavkit" if exponent == 0 else words, "middle"))
    for number, (label, ours, floor, peer, name) in enumerate(rows):
        y = TOP + ROW * number + ROW / 2
        out.append(text(LEFT - 10, y + 4, label, "end"))
        one = place(1)
        if peer:
            out.append(f'<path d="M{one:.0f} {y:.0f}H{place(peer):.0f}" stroke="{PEER}" '
                       f'stroke-width="3"/><circle cx="{place(peer):.0f}" cy="{y:.0f}" r="4" '
                       f'fill="{PEER}"/>')
        if floor:
            out.append(f'<circle cx="{place(floor):.0f}" cy="{y:.0f}" r="4" fill="#ffffff" '
                       f'stroke="{FLOOR}" stroke-width="2"/>')
        out.append(text(LEFT + PLOT + 12, y + 4, ours + (f"; {name}" if name else "")))
    return "\n".join([*out, "</svg>", ""])


def main():
    target = DOCS / "pictures/speed.svg"
    target.write_text(draw(rows_of(PAGE.read_text(encoding="utf-8"))),
                      encoding="utf-8")
    return 0


if __name__ == "__main__":
    sys.exit(main())
