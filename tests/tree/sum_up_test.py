# SPDX-License-Identifier: Apache-2.0
"""tools/sum-up: how many tests there were, and what was skipped."""

import pathlib
import subprocess
import xml.etree.ElementTree as xml

SUM_UP = pathlib.Path(__file__).resolve().parents[2] / "tools/sum-up"

GOOGLETEST = """\
Running main() from gtest_main.cc
[==========] Running 3 tests from 2 test suites.
[ RUN      ] Door.Opens
[       OK ] Door.Opens (0 ms)
[ RUN      ] Door.Closes
door_test.cpp:7: Failure
Expected: closed
[  FAILED  ] Door.Closes (1 ms)
[ RUN      ] Window.Opens
window_test.cpp:9: Skipped
no window here
[  SKIPPED ] Window.Opens (0 ms)
[==========] 3 tests from 2 test suites ran. (1 ms total)
[  PASSED  ] 1 test.
[  SKIPPED ] 1 test, listed below:
[  SKIPPED ] Window.Opens
[  FAILED  ] 1 test, listed below:
[  FAILED  ] Door.Closes

 1 FAILED TEST
"""


def told(folder, *tests, options=()):
    """What sum-up says of tests, each a name, a status and an output."""
    suite = xml.Element("testsuite")
    for name, status, output in tests:
        case = xml.SubElement(suite, "testcase", name=name, status=status)
        if status == "notrun":
            xml.SubElement(case, "skipped")
        xml.SubElement(case, "system-out").text = output
    xml.ElementTree(suite).write(folder / "found.xml")
    return subprocess.run([SUM_UP, *options, folder / "found.xml"], capture_output=True, text=True, check=True).stdout


def test_counts_a_program_of_googletest_by_its_cases(tmp_path):
    house = GOOGLETEST.replace("[  FAILED  ]", "[       OK ]")
    assert told(tmp_path, ("house", "run", house), ("cli.tool", "run", "12 passed in 3 s")) == "3 tests passed, 1 skipped.\n    skipped: Window.Opens\n"


def test_counts_what_ctest_skipped(tmp_path):
    assert told(tmp_path, ("cli.ipmi", "notrun", ""), ("cli.tool", "run", "")) == "1 tests passed, 1 skipped.\n    skipped: cli.ipmi\n"


def test_a_case_that_ctest_runs_alone_is_counted_once(tmp_path):
    alone = GOOGLETEST[: GOOGLETEST.index("[==========] 3")].replace("3 tests", "1 test") + (
        "[==========] 1 test from 1 test suite ran. (0 ms total)\n[  PASSED  ] 0 tests.\n"
        "[  SKIPPED ] 1 test, listed below:\n[  SKIPPED ] Window.Opens\n")
    assert told(tmp_path, ("Window.Opens", "notrun", alone)) == "0 tests passed, 1 skipped.\n    skipped: Window.Opens\n"


def test_tells_which_case_failed_and_what_it_said(tmp_path):
    assert told(tmp_path, ("house", "fail", GOOGLETEST), options=["--failed"]) == (
        "house said, among other things:\n    Door.Closes\n    door_test.cpp:7: Failure\n    Expected: closed\n")


def test_tells_the_last_lines_of_a_program_that_crashed(tmp_path):
    crashed = GOOGLETEST[: GOOGLETEST.index("door_test.cpp:7")] + "AddressSanitizer: heap-use-after-free\n"
    assert "    [ RUN      ] Door.Closes\n    AddressSanitizer: heap-use-after-free\n" in told(
        tmp_path, ("house", "fail", crashed), options=["--failed"])
