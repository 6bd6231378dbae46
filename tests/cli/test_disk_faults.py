# SPDX-License-Identifier: Apache-2.0
"""A disk that fails at every single call of a run: the run ends with a documented code, its files
are whole or not there, and nothing is left that could have been removed.

To be run in tools/private-net, because of port 115.
"""

import concurrent.futures
import hashlib
import json
import pathlib
import sys

import pytest

import ipmi_tool
import tool

sys.path.insert(0, str(tool.ROOT / "tests" / "support"))
import weather  # noqa: E402  pylint: disable=wrong-import-position

CALLS = ("open", "write", "fsync", "close", "rename", "unlink")
FAULTS = ("EIO", "ENOSPC", "EINTR", "short=1000")
CODES = {0, 7, 8, 9}


def digest(path):
    return hashlib.sha256(pathlib.Path(path).read_bytes()).hexdigest()


@pytest.fixture(scope="module")
def redfish_run():
    """How to run, and what whole files look like."""
    bmc = tool.Bmc({"redfish": {"archive": {"size": 600000}, "task_states": ["Completed"]}})
    yield (lambda folder: (tool.collect(bmc, folder / "out"), {}), bmc.password,
           {bmc.ready["archive"]["sha256"]})
    bmc.stop()


@pytest.fixture(scope="module")
def ipmi_run():
    scenario = ipmi_tool.scenario(
        {"polls": 0}, {"files": {"/download/ffdc/": ["a.log", {"name": "b.tgz", "size": 300000}]}})
    with ipmi_tool.started(scenario) as bmc:
        yield (lambda folder: (ipmi_tool.over_lan("collect", bmc, "--mode", "2", "--output", str(folder / "out")),
                               ipmi_tool.environment(folder, [ipmi_tool.PLAYED_TIME], PLAYED_SLEEP="20")),
               bmc.password, set(ipmi_tool.served(bmc).values()))


def run(how, folder, rules):
    arguments, environment = how[0](folder)
    faults = weather.disk_faults(tool.TOOL, rules, folder / "record")
    if environment.get("LD_PRELOAD"):
        faults["LD_PRELOAD"] += " " + environment["LD_PRELOAD"].replace(":", " ")
    return tool.run(arguments, 60, password=how[1], environment={**environment, **faults, "XDG_STATE_HOME": str(folder / "state")})


def played(folder):
    record = folder / "record"
    return record.read_text(encoding="utf-8").splitlines() if record.exists() else []


def calls_of(how, folder):
    """How often an undisturbed run makes each call below its folder for output."""
    folder.mkdir()
    ended = run(how, folder, ";".join(f"{call}:{folder}/out:*:none" for call in CALLS))
    assert ended.code == 0, ended.err
    names = [line.split()[0] for line in played(folder)]
    return {call: names.count(call) for call in CALLS}


def fail(how, folder, call, number, fault, whole):
    """One run, one failed call; what was wrong with its end, or nothing."""
    folder.mkdir()
    ended = run(how, folder, f"{call}:{folder}/out:{number}:{fault}")
    case = f"{call} {number} {fault}: exit code {ended.code}: {ended.err}"
    assert played(folder) != [], f"{case}: the fault was not played"
    assert ended.code in CODES and "Sanitizer" not in ended.err, case
    assert ended.code == 0 or ended.err.endswith(f"[exit code {ended.code}]\n"), case
    files = [path for path in (folder / "out").rglob("*") if not path.is_dir()]
    for path in files:
        if path.name.endswith("part") or path.name.startswith("."):
            assert call == "unlink", f"{case}: left {path.name}"
        elif path.suffix == ".json":
            assert json.loads(path.read_text(encoding="utf-8"))["exit_code"] == ended.code, case
        else:
            assert digest(path) in whole, f"{case}: {path.name} is not whole"
    if ended.code == 0:
        assert {digest(path) for path in files} >= whole, f"{case}: a file is missing"
    return f"{call} {fault} {ended.code}"


def fail_everywhere(how, whole, folder, at_once):
    counts = calls_of(how, folder / "calm")
    assert all(counts[call] for call in ("open", "write", "close", "rename")), counts
    cases = [(call, number, fault) for call in CALLS for number in range(1, counts[call] + 1) for fault in FAULTS
             if call == "write" or not fault.startswith("short")]
    with concurrent.futures.ThreadPoolExecutor(at_once) as pool:
        return list(pool.map(lambda case: fail(how, folder / "-".join(map(str, case)), *case, whole), cases))


def test_redfish(redfish_run, tmp_path):
    ends = fail_everywhere(redfish_run, redfish_run[2], tmp_path, 2)
    assert "write ENOSPC 8" in ends
    assert "rename EIO 8" in ends
    # What is no error must not become one.
    assert not [end for end in ends if end.startswith(("write short", "write EINTR")) and not end.endswith(" 0")]


def test_ipmi(ipmi_run, tmp_path):
    ends = fail_everywhere(ipmi_run, ipmi_run[2], tmp_path, 4)
    assert any(end in ends for end in ("write ENOSPC 8", "write ENOSPC 9")), ends
