#!/usr/bin/env python3
"""Draws the curves of docs/performance.md from what compare.py wrote, and prints its table.

    curves.py RESULTS.json FOLDER
"""

import json
import math
import pathlib
import re
import sys

WIDTH, HEIGHT = 640, 300
LEFT, RIGHT, TOP, BOTTOM = 80, 20, 40, 50
COLOURS = ("#1f6feb", "#d1242f")


class Axis:
    """Maps values to positions between two ends, by their logarithms where `is_log`."""

    def __init__(self, values, begin, end, is_log):
        self._scale = math.log10 if is_log else float
        low, high = min(values), max(values)
        self._low, self._high = self._scale(low if is_log else 0), self._scale(high)
        self._begin, self._end = begin, end

    def place(self, value):
        share = (self._scale(value) - self._low) / ((self._high - self._low) or 1)
        return self._begin + share * (self._end - self._begin)


def short(number):
    for limit, unit in ((1e6, "M"), (1e3, "k")):
        if number >= limit:
            return f"{number / limit:.3g}{unit}"
    return f"{number:.3g}"


def curves(title, x_name, lines, is_log):
    """An SVG text of named lines, each a list of (x, y)."""
    points = [point for line in lines.values() for point in line]
    across = Axis([x for x, _ in points], LEFT, WIDTH - RIGHT, True)
    up = Axis([y for _, y in points], HEIGHT - BOTTOM, TOP, is_log)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" font-family="sans-serif" font-size="12">',
             f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>', f'<text x="{LEFT}" y="18">{title}</text>',
             f'<text x="{WIDTH - RIGHT}" y="{HEIGHT - 10}" text-anchor="end">{x_name}</text>',
             f'<path d="M{LEFT} {TOP}V{HEIGHT - BOTTOM}H{WIDTH - RIGHT}" fill="none" stroke="gray"/>']
    for x in sorted({x for x, _ in points}):
        parts.append(f'<text x="{across.place(x):.1f}" y="{HEIGHT - BOTTOM + 16}" text-anchor="middle">{short(x)}</text>')
    for y in {min(y for _, y in points), max(y for _, y in points)}:
        parts.append(f'<text x="{LEFT - 6}" y="{up.place(y) + 4:.1f}" text-anchor="end">{short(y)}</text>')
    for number, ((name, line), colour) in enumerate(zip(lines.items(), COLOURS)):
        places = [(across.place(x), up.place(y)) for x, y in line]
        parts.append(f'<polyline points="{" ".join(f"{x:.1f},{y:.1f}" for x, y in places)}" fill="none" stroke="{colour}" '
                     'stroke-width="2"/>')
        parts.extend(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{colour}"/>' for x, y in places)
        parts.append(f'<text x="{LEFT + 8 + 150 * number}" y="{TOP - 6}" fill="{colour}">{name}</text>')
    return "\n".join([*parts, "</svg>", ""])


def of(rows, table, pattern):
    """(number in the name, row) of the rows of a table whose names have that form."""
    found = [(re.search(pattern, row["name"]), row) for row in rows if row["table"] == table]
    return [(int(match.group(1).replace(",", "")), row) for match, row in found if match]


def both(rows, floor):
    return {"ferret": [(x, row["value"]) for x, row in rows], floor: [(x, row["floor"]) for x, row in rows]}


def shown(number):
    return f"{number:,.0f}" if number >= 1000 else f"{number:.4g}"


def table(rows):
    lines = ["| table | what | `ferret` | floor | unit | ratio | target |", "|---|---|---|---|---|---|---|"]
    for row in rows:
        # Where nothing is compared, the floor is 1 of the unit.
        ratio, floor = (f"{row['ratio']:.2f}", shown(row["floor"])) if row["floor"] != 1 else ("", "")
        lines.append(f"| {row['table']} | {row['name']} | {shown(row['value'])} | {floor} | {row['unit']} | {ratio} | {row['target']} |")
    return "\n".join(lines)


def main():
    rows = json.loads(pathlib.Path(sys.argv[1]).read_text())
    folder = pathlib.Path(sys.argv[2])
    topics = of(rows, "topics", r"([\d,]+) topics")
    drawings = {
        "performance-rate": curves("what a publisher reaches beside one reader, samples per second", "bytes of a sample",
                                   both(of(rows, "rate", r"([\d,]+) B"), "ddsperf sub"), True),
        "performance-topics": curves("processor time for a sample, microseconds", "topics that share 5,000 samples per second",
                                     {"ferret": [(x, row["value"]) for x, row in topics]}, False),
        "performance-endpoints": curves("until the last of many new writers is told, milliseconds", "writers",
                                        both(of(rows, "endpoints", r"([\d,]+) writers, time"), "Cyclone DDS, builtin topic"), False),
        "performance-memory": curves("memory for each writer, bytes", "writers",
                                     both(of(rows, "endpoints", r"([\d,]+) writers, memory"), "Cyclone DDS, builtin topic"), False),
    }
    for name, drawing in drawings.items():
        (folder / f"{name}.svg").write_text(drawing)
    print(table(rows))


if __name__ == "__main__":
    main()
