# SPDX-License-Identifier: Apache-2.0
"""tools/mutants.list says what it means, and keeps up with src/."""

import importlib.machinery
import importlib.util
import pathlib
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]


@pytest.fixture(name="tool", scope="module")
def _tool():
    loader = importlib.machinery.SourceFileLoader("mutants", str(ROOT / "tools" / "mutants"))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("mutants", loader))
    sys.modules["mutants"] = module
    loader.exec_module(module)
    return module


def test_each_line_of_the_list_stands_once_in_its_file_and_changes(tool):
    mutants = tool.read_list(tool.LIST.read_text(encoding="utf-8"))
    for mutant in mutants:
        text = (ROOT / mutant.file).read_text(encoding="utf-8")
        assert tool.changed(text, mutant) != text, mutant
    assert {m.file for m in mutants} == {str(f.relative_to(ROOT)) for f in (ROOT / "src").rglob("*.cpp")}


def test_a_change_keeps_all_other_lines_and_its_own_place(tool):
    (mutant,) = tool.read_list("a.cpp\n  - if (x)\n  + if (!x)\n  = nobody can\n")
    assert tool.changed("a\n    if (x)\nb\n", mutant) == "a\n    if (!x)\nb\n"
    assert mutant.reason == "nobody can"


@pytest.mark.parametrize("text", ["  - if (x)\n", "a.cpp\n  + x\n", "a.cpp\n  x\n"])
def test_a_list_that_cannot_be_understood_is_told(tool, text):
    with pytest.raises(SystemExit, match="is no file"):
        tool.read_list(text)


@pytest.mark.parametrize("text", ["y\n", "x\nx\n"])
def test_a_line_that_is_not_there_or_not_alone_is_told(tool, text):
    with pytest.raises(SystemExit, match="it has to be one"):
        tool.changed(text, tool.Mutant(1, "a.cpp", "x", "z"))
