# SPDX-License-Identifier: Apache-2.0
"""docs/faults.md: one table for each channel, below a heading of its own."""

import re

import tool

TABLE = tool.ROOT / "docs" / "faults.md"


class Row:
    """A fault: what happens, and what comes out."""

    def __init__(self, line):
        cells = [cell.strip() for cell in re.split(r"(?<!\\)\|", line.strip().strip("|"))]
        assert len(cells) == 4, f"a row has four cells: {line}"
        self.what, self.library, code, self.text = cells
        self.code = int(code)

    def pattern(self, host, port):
        """The text as a regular expression."""
        text = re.sub(r"\bHOST\b", host, re.sub(r"\bPORT\b", str(port), self.text))
        return ".*".join(re.escape(piece) for piece in text.split("..."))


def headings():
    """Those that have a table below them."""
    return [heading for heading, lines in _sections() if lines]


def read_table(heading):
    (lines,) = [lines for found, lines in _sections() if found == heading]
    return [Row(line) for line in lines[2:]]


def rows(heading):
    """By what happens. No row is there twice."""
    listed = read_table(heading)
    by_name = {row.what: row for row in listed}
    assert len(by_name) == len(listed), f"something is named twice below {heading}"
    return by_name


def _sections():
    sections = [("", [])]
    for line in TABLE.read_text(encoding="utf-8").splitlines():
        if line.startswith("## "):
            sections.append((line[3:], []))
        elif line.startswith("|"):
            sections[-1][1].append(line)
    return sections
