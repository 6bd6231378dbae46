# SPDX-License-Identifier: Apache-2.0
"""A row of the table: what was measured, beside whom, and whether the goal holds."""

from __future__ import annotations

import dataclasses
import statistics

HEADINGS = ("Work", "Ours", "Beside", "Ratio", "Goal", "Held")


@dataclasses.dataclass
class Row:
    """`ours` and each of `peers` are what the rounds gave. The first peer is the one that the goal
    speaks of. `kind`: "time" (ours / peer), "speed" (peer / ours) or "value" (ours alone)."""

    part: str
    work: str
    ours: list[float]
    peers: dict[str, list[float]] = dataclasses.field(default_factory=dict)
    kind: str = "time"
    unit: str = "s"
    at_most: float | None = None
    at_least: float | None = None
    note: str = ""
    series: tuple[str, float] | None = None  # of a chart: its name, and where this row stands in it

    def ratio(self, peer: str | None = None) -> float:
        ours = statistics.median(self.ours)
        if self.kind == "value":
            return ours
        theirs = statistics.median(self.peers[peer or next(iter(self.peers))])
        return ours / theirs if self.kind == "time" else theirs / ours

    def held(self) -> bool | None:
        """None where there is no goal."""
        if self.at_most is not None:
            return self.ratio() <= self.at_most
        if self.at_least is not None:
            return self.ratio() >= self.at_least
        return None

    def goal(self) -> str:
        unit = f" {self.unit}" if self.kind == "value" and self.unit else ""
        if self.at_most is not None:
            return f"<= {self.at_most:g}{unit}"
        return f">= {self.at_least:g}{unit}" if self.at_least is not None else ""

    def as_json(self) -> dict:
        measured = {"ours": self.ours, **{f"peer {name}": times for name, times in self.peers.items()}}
        return {"part": self.part, "work": self.work, "unit": self.unit, "kind": self.kind,
                "measured": measured, "ratios": {name: self.ratio(name) for name in self.peers},
                "goal": self.goal() or None, "held": self.held(), "note": self.note or None}

    def cells(self) -> tuple[str, ...]:
        beside = "; ".join(f"{name} {spread(times, self.unit)}" for name, times in self.peers.items())
        ratios = "; ".join(f"{self.kind} {self.ratio(name):.2f}" for name in self.peers)
        held = {True: "yes", False: "NO", None: ""}[self.held()]
        work = f"{self.work} ({self.note})" if self.note else self.work
        return work, spread(self.ours, self.unit), beside, ratios, self.goal(), held


@dataclasses.dataclass
class NotMeasured:
    """What could not be, and why: said, and never taken for a result."""

    part: str
    work: str
    why: str

    def as_json(self) -> dict:
        return {"part": self.part, "work": self.work, "not_measured": self.why}

    def cells(self) -> tuple[str, ...]:
        return self.work, f"NOT MEASURED: {self.why}", "", "", "", ""


def number(value: float) -> str:
    return f"{value:.1f}" if value >= 100 else f"{value:.3g}"


def spread(values: list[float], unit: str) -> str:
    """The median, and from where to where the rounds went."""
    median = f"{number(statistics.median(values))} {unit}".rstrip()
    if len(values) == 1:
        return median
    return f"{median} ({number(min(values))} to {number(max(values))})"


def table(rows: list) -> str:
    """In Markdown, and readable as it is."""
    lines = [HEADINGS, *(row.cells() for row in rows)]
    widths = [max(len(line[column]) for line in lines) for column in range(len(HEADINGS))]
    written = ["| " + " | ".join(cell.ljust(width) for cell, width in zip(line, widths)) + " |"
               for line in lines]
    written.insert(1, "|" + "|".join("-" * (width + 2) for width in widths) + "|")
    return "\n".join(written)
