# SPDX-License-Identifier: Apache-2.0
"""What the documents promise about the tree."""

import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
RELEASE = re.compile(r"^## \[(\d+\.\d+\.\d+)\] - \d{4}-\d\d-\d\d\n\nTag `v(.*?)`\.$", re.MULTILINE)


def text(name):
    return (ROOT / name).read_text(encoding="utf-8")


def test_the_newest_release_of_the_changelog_is_the_version_that_is_built():
    built = re.search(r"^project\(VarnexFfdc VERSION (\S+)", text("CMakeLists.txt"), re.MULTILINE)[1]
    releases = RELEASE.findall(text("CHANGELOG.md"))

    assert releases[0][0] == built
    assert all(version == tag for version, tag in releases)
    assert len(releases) == len(re.findall(r"^## \[\d", text("CHANGELOG.md"), re.MULTILINE))
    assert text("CHANGELOG.md").index("## [Unreleased]") < text("CHANGELOG.md").index(f"[{built}]")


def test_levels_have_the_names_that_records_show():
    """tests/platform/Log_test.cpp says which these are."""
    shown = re.findall(r'"(\w+) src/some/source:4\d text (\d)"', text("tests/platform/Log_test.cpp"))
    named = [("1", "error"), ("2", "warning"), ("3", "info"), ("4", "debug")]

    assert set(named) <= {(level, name) for name, level in shown}
    for document in ("docs/log-catalogue.md", "platform/README.md", "platform/include/Log.h",
                     "platform/include/LogSink.h"):
        plain = " ".join(text(document).replace("`", "").replace("//", "").split())
        for level, name in named:
            assert re.search(rf"\b{level} (\(|is )?{name}\b", plain), (document, level)


def rows(document, heading):
    """The cells of the table below a heading."""
    section = text(document).partition(f"\n## {heading}\n")[2].partition("\n## ")[0]
    return [[cell.strip() for cell in line.strip("|").split(" | ")]
            for line in section.splitlines() if line.startswith("| ")][1:]


def distinct(lines):
    """Neighbours that are the same count once."""
    return [line for before, line in zip([None, *lines], lines) if line != before]


def recorded(journey):
    return distinct(text(f"tests/journeys/{journey}").splitlines())


def test_the_overview_shows_the_requests_of_a_run_over_redfish():
    named = [request for row in rows("docs/overview.md", "A run over Redfish")
             for request in re.findall(r"`((?:GET|POST)\b[^`]*)`", row[1])]

    assert named == [line.replace(" {ARCHIVE}", "") for line in recorded("redfish/download.requests")]


def test_the_overview_shows_the_requests_of_a_run_over_cim():
    named = [request for row in rows("docs/overview.md", "A run over CIM")
             for request in re.findall(r"`(EnumerateInstances|ExportData)`", row[1])]

    assert distinct(named) == [line.removeprefix("POST ") for line in recorded("cim/export.requests")]


def test_the_overview_shows_the_commands_of_a_run_over_ipmi():
    named = re.findall(r"`3A (..) 01`", str(rows("docs/overview.md", "A run over IPMI")))
    sent = re.findall(r"constexpr OemRequest \w+ = \{\s*0x(..),",
                      text("src/module/kvs/ffdc/ffdcipmi_impl.cpp"))

    assert named == sent


def test_the_overview_names_every_folder():
    named = " ".join(row[0] for row in rows("docs/overview.md", "Where things are"))
    for folder in [*ROOT.glob("[a-z]*/"), *(ROOT / "tests").glob("[a-z]*/")]:
        name = folder.relative_to(ROOT).as_posix()
        if folder.is_dir() and name not in ("build", "demo-output", "tests", "include"):
            assert f"`{name}`" in named, name
    for name in re.findall(r"`([^`]*)`", named):
        assert (ROOT / name).is_dir(), name
