# SPDX-License-Identifier: Apache-2.0
"""Charts of the rows as SVG, each for a light and for a dark page."""

from __future__ import annotations

import dataclasses
import math
import statistics
from html import escape

WIDTH = 720
LONGEST_BAR = 4  # times the peer


@dataclasses.dataclass
class Colours:
    page: str
    text: str
    faint: str
    grid: str
    goal: str
    lines: tuple[str, ...]


THEMES = {
    "light": Colours("#ffffff", "#1f2328", "#57606a", "#d8dee4", "#8250df",
                     ("#0969da", "#bc4c00", "#1a7f37")),
    "dark": Colours("#0d1117", "#e6edf3", "#9198a1", "#30363d", "#bc8cff",
                    ("#58a6ff", "#f0883e", "#56d364")),
}


class Drawing:
    def __init__(self, height: float, title: str, colours: Colours):
        self.colours = colours
        self.parts = [
            f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height:g}" role="img" '
            f'font-family="system-ui, sans-serif" font-size="13"><title>{escape(title)}</title>',
            f'<rect width="{WIDTH}" height="{height:g}" fill="{colours.page}"/>']
        self.text(16, 26, title, weight=600)

    def text(self, x, y, words, anchor="start", colour=None, weight=400):
        self.parts.append(
            f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-weight="{weight}" '
            f'fill="{colour or self.colours.text}">{escape(words)}</text>')

    def line(self, x1, y1, x2, y2, colour, width=1.0, dashes=""):
        dashed = f' stroke-dasharray="{dashes}"' if dashes else ""
        self.parts.append(f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" '
                          f'stroke="{colour}" stroke-width="{width:g}"{dashed}/>')

    def bar(self, x, y, width, height, colour):
        self.parts.append(f'<rect x="{x:.1f}" y="{y:.1f}" width="{width:.1f}" '
                          f'height="{height:.1f}" rx="2" fill="{colour}"/>')

    def path(self, points, colour):
        drawn = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
        self.parts.append(f'<polyline points="{drawn}" fill="none" stroke="{colour}" '
                          'stroke-width="2"/>')
        self.parts.extend(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3.5" fill="{colour}"/>'
                          for x, y in points)

    def whole(self) -> str:
        return "\n".join([*self.parts, "</svg>", ""])


def share_of_time(row):
    """Ours as a share of the peer's, and the goal in the same terms: less is better for both."""
    if row.kind == "time":
        return row.ratio(), row.at_most
    return 1 / row.ratio(), 1 / row.at_least if row.at_least else None


def ratios(rows, colours):
    """A bar for each row that has a goal beside a peer."""
    shown = [row for row in rows if row.peers and row.goal() and row.kind != "value"]
    if not shown:
        return None
    step, left, top = 30, 330, 62
    drawing = Drawing(top + step * len(shown) + 34, "Time beside the peer's: shorter is better",
                      colours)
    longest = max(max(value, goal or 0) for value, goal in map(share_of_time, shown))
    scale = (WIDTH - left - 70) / max(1.1, min(longest, LONGEST_BAR))
    cut = f"; bars are cut at {LONGEST_BAR}" if longest > LONGEST_BAR else ""
    drawing.text(16, 46, "1 = as long as the peer; upright mark: the goal; orange: the goal is "
                 f"missed{cut}", colour=colours.faint)
    bottom = top + step * len(shown)
    drawing.line(left + scale, top - 6, left + scale, bottom, colours.faint)
    drawing.text(left + scale, bottom + 16, "1", "middle", colours.faint)
    for place, row in enumerate(shown):
        value, goal = share_of_time(row)
        y = top + step * place
        width = min(value, LONGEST_BAR) * scale
        drawing.text(left - 10, y + 15, short(row), "end")
        drawing.bar(left, y + 3, width, 16, colours.lines[0 if row.held() else 1])
        drawing.text(WIDTH - 16, y + 15, f"{value:.2f}", "end")
        if goal:
            drawing.line(left + goal * scale, y, left + goal * scale, y + 22, colours.goal, 2.5)
    drawing.text(left, bottom + 16, "0", "middle", colours.faint)
    return drawing.whole()


def short(row):
    work = row.work.replace("the tool's whole ", "").replace(" on one TLS connection", "")
    work = work.replace(" on one session", "").replace(" on one connection", "")
    return work if len(work) <= 46 else work[:45] + "…"


@dataclasses.dataclass
class Axes:
    title: str
    below: str
    unit: str
    logarithmic: bool
    goal: float | None = None


def graph(axes, lines, colours):
    """`lines`: points (x, y) by name. x is always logarithmic."""
    points = [point for line in lines.values() for point in line]
    if len({x for x, _ in points}) < 2:
        return None
    height, left, right, top, bottom = 360, 70, 170, 56, 50
    drawing = Drawing(height, axes.title, colours)
    xs = sorted({x for x, _ in points})
    highest = max([y for _, y in points] + [axes.goal or 0]) * 1.15
    lowest = min(y for _, y in points) / 1.5 if axes.logarithmic else 0.0

    def across(x):
        return left + (WIDTH - left - right) * math.log(x / xs[0]) / math.log(xs[-1] / xs[0])

    def up(y):
        share = (math.log(y / lowest) / math.log(highest / lowest) if axes.logarithmic
                 else (y - lowest) / (highest - lowest))
        return height - bottom - (height - top - bottom) * share

    for y in ticks(lowest, highest, axes.logarithmic):
        drawing.line(left, up(y), WIDTH - right, up(y), colours.grid)
        drawing.text(left - 8, up(y) + 4, f"{y:g} {axes.unit}", "end", colours.faint)
    for x in xs:
        drawing.text(across(x), height - bottom + 20, f"{x:,.0f}", "middle", colours.faint)
    drawing.text((left + WIDTH - right) / 2, height - 12, axes.below, "middle", colours.faint)
    if axes.goal:
        drawing.line(left, up(axes.goal), WIDTH - right, up(axes.goal), colours.goal, 1.5, "6 4")
        drawing.text(WIDTH - right + 8, up(axes.goal) + 4, f"goal {axes.goal:g} {axes.unit}",
                     colour=colours.goal)
    taken = [up(axes.goal)] if axes.goal else []
    for (name, line), colour in zip(lines.items(), colours.lines):
        drawing.path([(across(x), up(y)) for x, y in line], colour)
        y = up(line[-1][1])
        while any(abs(y - other) < 15 for other in taken):
            y += 3
        taken.append(y)
        drawing.text(WIDTH - right + 8, y + 4, name, colour=colour, weight=600)
    return drawing.whole()


def ticks(lowest, highest, logarithmic):
    if logarithmic:
        return [10.0 ** power for power in range(math.ceil(math.log10(lowest)),
                                                 math.floor(math.log10(highest)) + 1)]
    step = 10.0 ** math.floor(math.log10(highest))
    while highest / step < 4:
        step /= 2
    return [step * count for count in range(int(highest / step) + 1)]


def by_series(rows, names):
    """Points of our own figures, a line for each series."""
    lines = {}
    for row in rows:
        if row.series and row.series[0] in names and row.kind == "value":
            lines.setdefault(row.series[0], []).append(
                (row.series[1], statistics.median(row.ours)))
    return lines


def by_peer(rows, name):
    """Points of one series: ours, and each peer's."""
    lines = {}
    for row in rows:
        if row.series and row.series[0] == name:
            for who, values in {"ours": row.ours, **row.peers}.items():
                lines.setdefault(who, []).append((row.series[1], statistics.median(values)))
    return lines


def charts(rows):
    """(name of the file, content). Only what can be drawn from what was measured."""
    memory = Axes("Peak memory of a transfer", "size of the file, MiB", "MiB", False, goal=24)
    files = Axes("Files of 1 KiB by SFTP, all of a folder", "number of files", "s", True)
    for theme, colours in THEMES.items():
        drawn = {
            "beside-the-peers": ratios(rows, colours),
            "memory-by-size": graph(memory, by_series(rows, ("HTTPS", "SFTP")), colours),
            "time-by-files": graph(files, by_peer(rows, "files"), colours),
        }
        for name, content in drawn.items():
            if content:
                yield f"{name}-{theme}.svg", content
