# SPDX-License-Identifier: Apache-2.0
"""The checks of the tree find what they are there for."""

import pathlib
import subprocess

import pytest

TOOLS = pathlib.Path(__file__).resolve().parents[2] / "tools"
LICENCE = "// SPDX-License-Identifier: Apache-2.0\n"


def run(check, tree):
    return subprocess.run([TOOLS / check, tree], capture_output=True, text=True, timeout=60,
                          check=False)


def write(tree, name, text):
    path = tree / name
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text, encoding="utf-8")


@pytest.fixture
def tree(tmp_path):
    write(tmp_path, "include/varnex/KEMFfdc.h", LICENCE)
    write(tmp_path, "platform/include/Log.h", LICENCE + "#include <memory>\n")
    write(tmp_path, "src/common/log_line.h", LICENCE + '#include "Log.h"\n')
    write(tmp_path, "src/module/kvs/ffdc/ffdc.cpp",
          LICENCE + '#include <varnex/KEMFfdc.h>\n#include "common/log_line.h"\n')
    write(tmp_path, "cli/main.cpp", LICENCE + '#include "varnex/KEMFfdc.h"\n')
    write(tmp_path, "emulator/bmc.py",
          "# SPDX-License-Identifier: Apache-2.0\nimport json\nimport aiohttp\n")
    return tmp_path


def test_a_clean_tree_passes(tree):
    for check in ("check-comments", "check-includes"):
        result = run(check, tree)
        assert (result.returncode, result.stdout) == (0, "")


@pytest.mark.parametrize("file, line, said", [
    ("cli/main.cpp", '#include "common/log_line.h"', "must not include src/common/log_line.h"),
    ("cli/main.cpp", '#include "../src/common/log_line.h"', "must not include src/common/log"),
    ("src/common/x.h", "#include <varnex/KEMFfdc.h>", "must not include include/varnex/KEMFfdc.h"),
    ("include/varnex/x.h", '#include "Log.h"', "must not include platform/include/Log.h"),
    ("platform/include/x.h", '#include "common/log_line.h"', "must not include src/common"),
    ("platform/src/x.cpp", '#  include "varnex/KEMFfdc.h"', "must not include include/varnex"),
    ("cli/main.cpp", '#include "curl/curl.h"', "is no header of this tree"),
    ("emulator/bmc.py", "import ctypes", "must not import ctypes"),
    ("emulator/bmc.py", "from tests.support import thing", "must not import tests.support"),
])
def test_an_arrow_in_the_wrong_direction_is_found(tree, file, line, said):
    text = (tree / file).read_text() if (tree / file).exists() else LICENCE
    write(tree, file, text + line + "\n")

    result = run("check-includes", tree)

    assert result.returncode == 1
    assert said in result.stdout


@pytest.mark.parametrize("comment", [
    "// Increments, as required.",
    "// The spec says so.",
    "// Kept for historical reasons.",
    "// TODO: think again.",
    "// See Part 4.2.",
    "// Step 5.6",
])
def test_a_comment_without_a_reason_is_found(tree, comment):
    write(tree, "src/common/x.cpp", LICENCE + comment + "\n")

    result = run("check-comments", tree)

    assert result.returncode == 1
    assert "src/common/x.cpp:2:" in result.stdout


def test_a_source_without_its_licence_is_found(tree):
    write(tree, "src/common/x.cpp", "int x;\n")

    result = run("check-comments", tree)

    assert result.returncode == 1
    assert "src/common/x.cpp" in result.stdout
