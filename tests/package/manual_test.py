# SPDX-License-Identifier: Apache-2.0
"""The installed pages of the manual."""

import re
import subprocess

import pytest

from commands import run

PAGES = ["man1/emulated-bmc.1", "man1/kemffdc-fleet.1", "man1/kemffdc.1", "man3/varnex-ffdc.3", "man5/kemffdc.conf.5"]


def rendered(prefix, page, columns=80):
    """The page as a terminal shows it, without a word of complaint from the formatter."""
    shown = subprocess.run(["man", "-l", "--warnings", "-E", "UTF-8", "-P", "cat", prefix / "share" / "man" / page],
                           capture_output=True, text=True, timeout=60, check=True,
                           env={"PATH": "/usr/bin:/bin", "MANWIDTH": str(columns), "LC_ALL": "C.UTF-8",
                                "MAN_KEEP_FORMATTING": ""})
    assert shown.stderr == ""
    return shown.stdout


def words(text):
    """What is between blanks, with words that were broken at a line's end made whole again."""
    return set(re.split(r"\s+", re.sub(r"‐\n\s*", "", text).replace("‐", "-")))


def commands(tool, *before):
    return [line.split("\t")[0] for line in run(tool, "complete", *before, "").stdout.splitlines()]


def options(tool, *command):
    return [line.split("\t")[0] for line in run(tool, "complete", *command, "--").stdout.splitlines()]


@pytest.mark.parametrize("page", PAGES)
def test_a_page_renders_without_warning_on_a_terminal_of_80_columns(prefix, page):
    text = rendered(prefix, page)
    assert text.startswith(page.split("/")[1].rsplit(".", 1)[0] + "(")
    assert "\nNAME\n" in text and "\nSEE ALSO\n" in text
    code = [line for line in text.splitlines() if len(line) > 80 and not line.startswith("       ")]
    assert code == []


def test_the_page_of_the_tool_names_each_command_and_option(prefix):
    named = words(rendered(prefix, "man1/kemffdc.1"))
    tool = prefix / "bin" / "kemffdc"
    assert "collect" in commands(tool)
    for name in set(commands(tool)) - {"fleet", "help"}:
        assert {name, *options(tool, name)} <= named


def test_the_page_of_fleets_names_each_command_and_option(prefix):
    named = words(rendered(prefix, "man1/kemffdc-fleet.1"))
    tool = prefix / "bin" / "kemffdc"
    assert "hosts" in commands(tool, "fleet")
    for name in commands(tool, "fleet"):
        assert {name, *options(tool, "fleet", name)} <= named


def test_there_is_no_page_that_is_not_looked_at(prefix):
    found = sorted(str(file.relative_to(prefix / "share" / "man")) for file in (prefix / "share" / "man").rglob("*.*"))
    assert found == PAGES

