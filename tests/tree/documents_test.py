# SPDX-License-Identifier: Apache-2.0
"""What the documents promise about the tree."""

import json
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
RELEASE = re.compile(r"^## \[(\d+\.\d+\.\d+)\] - \d{4}-\d\d-\d\d\n\nTag `v(.*?)`\.$", re.MULTILINE)


def text(name):
    return (ROOT / name).read_text(encoding="utf-8")


def test_the_newest_release_of_the_changelog_is_the_version_that_is_built():
    built = ".".join(re.findall(r"^#define VARNEX_FFDC_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)$",
                                text("include/varnex/version.h"), re.MULTILINE))
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


def test_the_readme_has_every_exit_code_of_the_tool():
    """Below no heading of its own, so that it stands where the tool is told of."""
    told = re.findall(r"^\| (\d+) \| .* \|$", text("README.md").partition("| Exit code | |")[2].partition("\n\n")[0],
                      re.MULTILINE)

    assert told == re.findall(r"^    k\w+ = (\d+),", text("cli/ExitCodes.h"), re.MULTILINE)


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


def first_words(document, heading):
    """What stands in backquotes in the first column of a table."""
    return {word for row in rows(document, heading) for word in re.findall(r"`([^`]*)`", row[0])}


def test_the_handbook_names_every_preset():
    presets = json.loads(text("CMakePresets.json"))["configurePresets"]

    assert first_words("docs/developing.md", "Presets") == {
        preset["name"] for preset in presets if not preset.get("hidden")}


def test_the_handbook_names_every_label_of_the_tests():
    labels = set()
    for file in (ROOT / "tests").rglob("CMakeLists.txt"):
        labels |= set(re.findall(r'\bLABELS?\s+"?([a-z][a-z-]*)', file.read_text(encoding="utf-8")))

    assert first_words("docs/developing.md", "Test labels") == labels


def test_the_handbook_names_every_option_of_a_build():
    declared = set()
    for file in [ROOT / "CMakeLists.txt", *(ROOT / "platform").rglob("CMakeLists.txt"),
                 *(ROOT / "cmake").glob("*.cmake")]:
        declared |= set(re.findall(r"(?:option\(|^set\((?=VARNEX_\w+ \S+ CACHE))(VARNEX_\w+)",
                                   file.read_text(encoding="utf-8"), re.MULTILINE))
    named = text("docs/developing.md").partition("Options of a build:")[2].partition("ccache")[0]

    assert set(re.findall(r"VARNEX_\w+", named)) == declared


def test_the_handbook_changes_one_thing_that_is_there():
    section = text("docs/developing.md").partition("## Change one thing")[2].partition("\n## ")[0]
    target = re.search(r"--target (\w+)\n", section)[1]
    program, suite = re.search(r"bin/(\w+) --gtest_filter='(\w+)\.\*'\n", section).groups()
    test = re.search(r"EDITOR (tests/\S+)", section)[1]

    assert program == target and f"TEST_F({suite}, " in text(test)
    listed = text("tests/unit/module/CMakeLists.txt")
    assert f"varnex_test({target}\n" in listed and test.removeprefix("tests/unit/module/") in listed


def test_the_emulator_s_page_names_its_scenarios_and_its_parts():
    page = text("docs/emulator.md")
    core = {path.stem for path in (ROOT / "emulator" / "bmc").glob("[a-z]*.py")}
    told = page.partition("| Part of the core | |")[2].partition("\n\n")[0]

    assert {word for row in re.findall(r"^\| (`[^|]*) \|", told, re.MULTILINE)
            for word in re.findall(r"`(\w+)`", row)} == core
    for scenario in (ROOT / "emulator" / "scenarios").glob("*.yaml"):
        assert f"`{scenario.stem}`" in page, scenario.stem


def test_the_packages_hold_every_part_of_the_emulator():
    parts = {path.name for path in (ROOT / "emulator").iterdir() if path.name != "__pycache__"}
    for packing in ("debian/kemffdc-emulator.install", "packaging/rpm/varnex-ffdc.spec"):
        assert parts <= set(re.findall(r"(?:^| )emulator/([\w-]+)", text(packing), re.MULTILINE)), packing


OURS = re.compile(r"(?:src|include|platform|shared|cli|emulator|tests|bench|fuzz|docs|tools|cmake|packaging|examples)"
                  r"/[\w./-]*[\w/]")


def documents():
    for path in sorted(ROOT.rglob("*.md")):
        if path.relative_to(ROOT).parts[0] not in ("build", "demo-output"):
            yield path


def test_files_that_documents_name_are_there():
    """A tag of the log is the path of a source without its extension."""
    for document in documents():
        content = document.read_text(encoding="utf-8")
        for words in re.findall(r"`([^`\n]*)`", content):
            name = words.split()[0] if words.split() else ""
            if OURS.fullmatch(name):
                there = (ROOT / name).exists() or (ROOT / (name + ".cpp")).exists() or (document.parent / name).exists()
                assert there, f"{document.relative_to(ROOT)}: {name}"


def test_every_page_can_be_reached_from_the_readme():
    link = re.compile(r"\]\(([^)#\s]+)[^)]*\)")
    reached, waiting = set(), [ROOT / "README.md"]
    while waiting:
        page = waiting.pop()
        if page in reached or page.suffix != ".md":
            continue
        reached.add(page)
        for target in link.findall(page.read_text(encoding="utf-8")):
            path = (page.parent / target).resolve()
            if "://" not in target:
                waiting += sorted(path.glob("*.md")) if path.is_dir() else [path]

    assert reached == {page for page in documents() if page.relative_to(ROOT).parts[0] != "tests"}


def test_every_decision_says_why_and_what_checks_it():
    for page in sorted((ROOT / "docs" / "decisions").glob("*.md")):
        content = page.read_text(encoding="utf-8")
        for part in ("**Decision.** ", "**Why", "**Checked by** "):
            assert part in content, f"{page.name}: {part}"


def test_a_build_looks_for_nothing_that_it_was_not_asked_for():
    """docs/linking.md. What is looked for is needed, and configuring ends where it is not there."""
    files = [file for file in ROOT.rglob("CMakeLists.txt") if "build" not in file.relative_to(ROOT).parts]
    lines = [line.strip() for file in files for line in file.read_text(encoding="utf-8").splitlines()]
    found = [re.match(r"find_(?:package|program|library|path)\((\w+)", line) for line in lines if "REQUIRED" not in line]

    # These end with words of their own: each is asked for by an option.
    assert {match[1] for match in found if match} == {"FREEIPMI_INCLUDE_DIR", "FREEIPMI_LIBRARY", "GTest", "Pegasus"}
