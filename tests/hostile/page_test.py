# SPDX-License-Identifier: Apache-2.0
"""docs/hostile.md shows all cases, and each with figures that hold."""

import pathlib
import re

import cases

ROOT = pathlib.Path(__file__).resolve().parents[2]
NAMES = {"redfish": "Redfish", "cim": "CIM", "ipmi": "IPMI"}


def rows():
    text = (ROOT / "docs" / "hostile.md").read_text(encoding="utf-8")
    lines = [line for line in text.splitlines() if re.match(r"\| (Redfish|CIM|IPMI): ", line)]
    return [[cell.strip().replace("\\|", "|") for cell in re.split(r"(?<!\\)\|", line)[1:-1]] for line in lines]


def test_the_page_shows_every_case():
    assert [row[0] for row in rows()] == [f"{NAMES[case.channel]}: {case.text}" for case in cases.CASES]


def test_no_row_is_over_the_bound_or_has_another_code():
    for row, case in zip(rows(), cases.CASES):
        assert int(row[1]) < 256 and (row[5] == "" or int(row[5]) < 256), row
        assert int(row[3]) in case.codes, row
