# SPDX-License-Identifier: Apache-2.0
"""What bench/run makes of figures: ratios, goals, the table, the charts, the page."""

import pathlib
import subprocess
import sys
from xml.etree import ElementTree

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "bench"))
from measure.charts import charts  # noqa: E402
from measure.rows import NotMeasured, Row, table  # noqa: E402


@pytest.mark.parametrize("kind,goal,ratio,held", [
    ("time", {"at_most": 0.5}, 0.5, True),
    ("time", {"at_most": 0.49}, 0.5, False),
    ("speed", {"at_least": 2}, 2.0, True),
    ("speed", {"at_least": 2.1}, 2.0, False),
    ("value", {"at_most": 1}, 1.0, True),
    ("value", {"at_most": 0.9}, 1.0, False),
    ("time", {}, 0.5, None),
])
def test_medians_are_compared_with_the_goal(kind, goal, ratio, held):
    row = Row("part", "work", [1, 9, 1], {"peer": [2, 2, 0], "other": [7]}, kind=kind, **goal)

    assert row.ratio() == ratio
    assert row.held() is held


def test_the_table_tells_every_peer_and_what_was_not_measured():
    said = table([Row("part", "work", [1.0, 3.0], {"peer": [4.0], "other": [1.0]}, at_most=0.25),
                  NotMeasured("part", "more work", "no such program")]).splitlines()

    assert [cell.strip() for cell in said[2].split("|")[1:-1]] == [
        "work", "2 s (1 to 3)", "peer 4 s; other 1 s", "time 0.50; time 2.00", "<= 0.25", "NO"]
    assert "NOT MEASURED: no such program" in said[3]
    assert len({len(line) for line in said}) == 1


def test_charts_are_drawn_for_both_themes_of_what_was_measured():
    rows = [Row("files", f"{count} files", [count / 10], {"curl": [count / 20]}, at_most=1.2,
                series=("files", count)) for count in (1, 100, 1000)]
    drawn = dict(charts(rows))

    assert sorted(drawn) == [f"{name}-{theme}.svg" for name in ("beside-the-peers", "time-by-files")
                             for theme in ("dark", "light")]
    for content in drawn.values():
        ElementTree.fromstring(content)
    assert "2.00" in drawn["beside-the-peers-light.svg"]
    assert "goal is missed" in drawn["beside-the-peers-light.svg"]


def test_an_unknown_part_is_refused_with_those_that_there_are():
    said = subprocess.run([ROOT / "bench" / "run", "https", "htps"], capture_output=True, text=True,
                          timeout=60, check=False)

    assert said.returncode == 2
    assert "htps: no such part; there are gets, https" in said.stderr
