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
