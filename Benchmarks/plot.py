#!/usr/bin/env python3
"""Draws what zav_scale measured: an SVG for each group of workloads, and one Markdown file with the tables.

usage: plot.py SCALE_CSV [OUTPUT_DIR]
"""

import collections
import csv
import html
import math
import pathlib
import sys

COLOURS = ["#1b6ca8", "#c8553d", "#3c8d40", "#8a4fa3", "#b8860b", "#2a9d8f", "#5b5b5b"]
WIDTH, HEIGHT, LEFT, RIGHT, TOP, BOTTOM = 860, 460, 70, 240, 40, 50


def read(path):
    """Microseconds by workload, contender and size, in the file's order."""
    table = collections.defaultdict(lambda: collections.defaultdict(dict))
    with open(path, newline="") as file:
        for row in csv.DictReader(file):
            name = f"{row['workload']} (per {row['unit']})"
            table[name][row["contender"]][int(row["events"])] = float(row["microseconds"])
    return table


def decades(values):
    low, high = math.floor(math.log10(min(values))), math.ceil(math.log10(max(values)))
    return low, max(high, low + 1)


def number(value):
    return f"{value:,.0f}" if value >= 1 else f"{value:g}"


def draw(title, workloads):
    points = [(size, cost) for lines in workloads.values() for line in lines.values() for size, cost in line.items()]
    (x_low, x_high), (y_low, y_high) = (decades(axis) for axis in zip(*points))
    x_of = lambda v: LEFT + (math.log10(v) - x_low) / (x_high - x_low) * (WIDTH - LEFT - RIGHT)
    y_of = lambda v: HEIGHT - BOTTOM - (math.log10(v) - y_low) / (y_high - y_low) * (HEIGHT - TOP - BOTTOM)

    svg = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" font-family="sans-serif" '
           f'font-size="12">', f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>',
           f'<text x="{LEFT}" y="22" font-size="15">{html.escape(title)}: microseconds by events stored</text>']
    for exponent in range(x_low, x_high + 1):
        x = x_of(10 ** exponent)
        svg.append(f'<line x1="{x:.1f}" y1="{TOP}" x2="{x:.1f}" y2="{HEIGHT - BOTTOM}" stroke="#ddd"/>'
                   f'<text x="{x:.1f}" y="{HEIGHT - BOTTOM + 18}" text-anchor="middle">{number(10 ** exponent)}</text>')
    for exponent in range(y_low, y_high + 1):
        y = y_of(10 ** exponent)
        svg.append(f'<line x1="{LEFT}" y1="{y:.1f}" x2="{WIDTH - RIGHT}" y2="{y:.1f}" stroke="#ddd"/>'
                   f'<text x="{LEFT - 8}" y="{y + 4:.1f}" text-anchor="end">{number(10 ** exponent)}</text>')
    for index, (workload, lines) in enumerate(workloads.items()):
        colour = COLOURS[index % len(COLOURS)]
        for contender, line in lines.items():
            path = " ".join(f"{x_of(size):.1f},{y_of(cost):.1f}" for size, cost in sorted(line.items()))
            dashes = ' stroke-dasharray="5 4" opacity="0.7"' if contender == "floor" else ""
            svg.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"{dashes}/>')
        y = TOP + 16 + 20 * index
        svg.append(f'<rect x="{WIDTH - RIGHT + 14}" y="{y - 9}" width="12" height="10" fill="{colour}"/>'
                   f'<text x="{WIDTH - RIGHT + 32}" y="{y}">{html.escape(workload.split("/", 1)[1])}</text>')
    svg.append(f'<text x="{WIDTH - RIGHT + 14}" y="{HEIGHT - BOTTOM}">solid: library, dashed: floor</text></svg>')
    return "\n".join(svg) + "\n"


def tables(table):
    sizes = sorted({size for lines in table.values() for line in lines.values() for size in line})
    text = ["Microseconds of processor time: the library, and in brackets as a multiple of the floor.", "",
            "| workload | " + " | ".join(f"{size:,} events" for size in sizes) + " |",
            "|---|" + "---:|" * len(sizes)]
    for workload, lines in table.items():
        cells = []
        for size in sizes:
            library, floor = lines["library"].get(size), lines.get("floor", {}).get(size)
            cells.append("" if library is None else f"{library:.2f}" + (f" ({library / floor:.2f})" if floor else ""))
        text.append(f"| {workload} | " + " | ".join(cells) + " |")
    return "\n".join(text) + "\n"


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    table = read(sys.argv[1])
    output = pathlib.Path(sys.argv[2] if len(sys.argv) == 3 else ".")
    output.mkdir(parents=True, exist_ok=True)
    groups = collections.defaultdict(dict)
    for workload, lines in table.items():
        groups[workload.split("/")[0]][workload] = lines
    for group, workloads in groups.items():
        (output / f"scale-{group}.svg").write_text(draw(group, workloads))
    (output / "scale.md").write_text(tables(table))


if __name__ == "__main__":
    main()
