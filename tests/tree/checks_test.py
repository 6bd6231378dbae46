# SPDX-License-Identifier: Apache-2.0
"""The checks of the tree find what they are there for."""

import pathlib
import subprocess

import pytest

TOOLS = pathlib.Path(__file__).resolve().parents[2] / "tools"
TAG = "SPDX-License-Identifier"
SPDX = f"{TAG}: Apache-2.0"
LICENCE = f"// {SPDX}\n"


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
    write(tmp_path, "src/common/cimom/src/cimfunc.h", LICENCE + "#include <varnex/KEMFfdc.h>\n")
    write(tmp_path, "src/module/kvs/ffdc/ffdc.cpp",
          LICENCE + '#include <varnex/KEMFfdc.h>\n#include "common/log_line.h"\n')
    write(tmp_path, "cli/main.cpp", LICENCE + '#include "varnex/KEMFfdc.h"\n')
    write(tmp_path, "cli/ExitCodes.h", LICENCE)
    write(tmp_path, "cli/Context.h", LICENCE + '#include "cli/http/Transport.h"\n')
    write(tmp_path, "cli/http/Transport.h", LICENCE + '#include "cli/ExitCodes.h"\n')
    write(tmp_path, "cli/redfish/Flow.h", LICENCE + '#include "cli/Context.h"\n')
    write(tmp_path, "cli/redfish/Channel.cpp", LICENCE + 'const Channel kChannel{"redfish",\n')
    write(tmp_path, "emulator/bmc.py",
          f"# {SPDX}\nimport json\nimport aiohttp\n")
    return tmp_path


def test_a_clean_tree_passes(tree):
    for check in ("check-channels", "check-comments", "check-includes"):
        result = run(check, tree)
        assert (result.returncode, result.stdout) == (0, "")


@pytest.mark.parametrize("file, line, found", [
    ("cli/Run.cpp", 'if (name == "redfish") {', True),
    ("cli/Run.cpp", "const bool known = options.via != name;", True),
    ("cli/Run.cpp", 'if (record.channel == "other") {', True),
    ("cli/redfish/Flow.cpp", 'constexpr char kName[] = "redfish";', True),
    ("cli/Run.cpp", '// one of "redfish"', False),
    ("cli/Help.cpp", '"  kemffdc collect --via redfish bmc7"', False),
    ("tests/x.cpp", '"redfish"', False),
])
def test_code_that_knows_a_channel_by_its_name_is_found(tree, file, line, found):
    write(tree, file, LICENCE + line + "\n")

    result = run("check-channels", tree)

    assert result.returncode == (1 if found else 0)
    assert (f"{file}:2: " in result.stdout) == found


@pytest.mark.parametrize("file, line, said", [
    ("cli/main.cpp", '#include "common/log_line.h"', "must not include src/common/log_line.h"),
    ("cli/main.cpp", '#include "../src/common/log_line.h"', "must not include src/common/log"),
    ("src/common/x.h", "#include <varnex/KEMFfdc.h>", "must not include include/varnex/KEMFfdc.h"),
    ("src/common/x.h", '#include "cimom/src/cimfunc.h"', "must not include src/common/cimom"),
    ("include/varnex/x.h", '#include "Log.h"', "must not include platform/include/Log.h"),
    ("platform/include/x.h", '#include "common/log_line.h"', "must not include src/common"),
    ("platform/src/x.cpp", '#  include "varnex/KEMFfdc.h"', "must not include include/varnex"),
    ("cli/main.cpp", '#include "curl/curl.h"', "is no header of this tree"),
    ("cli/http/x.cpp", '#include "cli/Context.h"', "must not include cli/Context.h"),
    ("cli/report/x.cpp", '#include "cli/redfish/Flow.h"', "must not include cli/redfish/Flow.h"),
    ("cli/cim/x.cpp", '#include "cli/redfish/Flow.h"', "must not include cli/redfish/Flow.h"),
    ("cli/Context.h", '#include "cli/redfish/Flow.h"', "must not include cli/redfish/Flow.h"),
    ("cli/attic/x.cpp", '#include "cli/ExitCodes.h"', "cli/attic/x.cpp lies in no room"),
    ("shared/x.h", '#include "cli/ExitCodes.h"', "must not include cli/ExitCodes.h"),
    ("cli/main.cpp", 'constexpr char kSource[] = "platform/src/' 'IpmiClient";',
     "main.cpp:3: looks for records of the platform"),
    ("emulator/bmc.py", "ctypes.CDLL('libvarnexffdc.so.1')", "must not load our libraries"),
    ("emulator/bmc.py", "from tests.support import thing", "must not import tests.support"),
])
def test_an_arrow_in_the_wrong_direction_is_found(tree, file, line, said):
    text = (tree / file).read_text() if (tree / file).exists() else LICENCE
    write(tree, file, text + line + "\n")

    result = run("check-includes", tree)

    assert result.returncode == 1
    assert said in result.stdout


# Put together here: the checks look at this file, too.
@pytest.mark.parametrize("words", [
    ["Increments, as ", "required."],
    ["The sp", "ec says so."],
    ["The sp", "ecifications say so."],
    ["A re", "quirement."],
    ["Kept for legacy ", "reasons."],
    ["TO", "DO: think again."],
    ["Step ", "5.6"],
    ["See ", "\u00a7 5."],
    ["Closes issue ", "#12."],
])
def test_a_comment_without_a_reason_is_found(tree, words):
    write(tree, "src/common/x.cpp", f"{LICENCE}// {''.join(words)}\n")

    result = run("check-comments", tree)

    assert result.returncode == 1
    assert "src/common/x.cpp:2:" in result.stdout


LOGGING = """
constexpr char kLogSource[] = "src/common/x";
const Step kSteps[] = {{1, "Found \\"Oem\\" here. "}};
void F() {
    LOG_LINE(kTrace) << "Trying  " << url  // two blanks
                     << ", code: " << code;
    LOG_LINE(level) << (good ? "Went well." : "Went badly.");
    LOG_LINE(kTrace) << step.text;
}
"""
CATALOGUE = """
## `src/common/x`

| Level | Text | When |
|---|---|---|
| 4 | `Trying  <URL>, code: <number>` | always |
| 3 | `Went well.` | sometimes |
| 1 | `Went badly.` | sometimes |
| 4 | `Found "Oem" here. ` | once |
"""


def test_a_complete_log_catalogue_passes(tree):
    write(tree, "src/common/x.cpp", LICENCE + LOGGING)
    write(tree, "docs/log-catalogue.md", CATALOGUE)

    assert run("check-log-catalogue", tree).stdout == ""


@pytest.mark.parametrize("old, new", [
    ("Trying  <", "Trying <"),
    ("| 4 | `Trying", "| 3 | `Trying"),
    ("| 3 | `Went well.` | sometimes |\n", ""),
    ("| 4 | `Found \"Oem\" here. ` | once |\n", ""),
    ("| 4 | `Found", "| 4 | `Never written` | never |\n| 4 | `Found"),
    ("here. `", "here.`"),
])
def test_a_log_catalogue_that_differs_from_the_sources_is_found(tree, old, new):
    assert old in CATALOGUE
    write(tree, "src/common/x.cpp", LICENCE + LOGGING)
    write(tree, "docs/log-catalogue.md", CATALOGUE.replace(old, new))

    result = run("check-log-catalogue", tree)

    assert result.returncode == 1
    assert "src/common/x" in result.stdout


def test_a_link_to_nowhere_is_found(tree):
    write(tree, "docs/a.md", "# Two `words`\n[good](b.md#part), [far](https://192.0.2.1/#x), [bad](c.md), [here](#two-words), "
          "[bad](b.md#parts), [bad](#words)\n")
    write(tree, "docs/b.md", "## Part\n[good](../cli)\n")

    result = run("check-links", tree)

    assert result.returncode == 1
    assert result.stdout.splitlines() == ["docs/a.md: c.md does not exist",
                                          "docs/a.md: b.md#parts is no heading there",
                                          "docs/a.md: #words is no heading there"]


def test_a_source_without_its_licence_is_found(tree):
    write(tree, "src/common/x.cpp", "int x;\n")

    result = run("check-comments", tree)

    assert result.returncode == 1
    assert "src/common/x.cpp" in result.stdout
