# SPDX-License-Identifier: Apache-2.0
"""The modules for one BMC: what they do to it, what they return, what they keep to themselves."""

import json
import os
import pathlib
import signal
import subprocess
import time

import pytest

import tool

QUICK = {"redfish": {"task_step_seconds": 0.05}}
# Long enough to be in the middle of, while a play starts.
SLOW = {"redfish": {"task_step_seconds": 0.75 + 0.4 * tool.SLOWNESS}}


@pytest.fixture
def station(tmp_path):
    """Options that name the folders of a station."""
    (tmp_path / "archives").mkdir()
    return {
        "executable": tool.TOOL,
        "state_dir": str(tmp_path / "state"),
        "output": str(tmp_path / "archives"),
    }


def reach(bmc, **more):
    return {
        "host": bmc.address, "port": bmc.port, "via": "redfish", "user": bmc.user,
        "password": bmc.password, **more,
    }


def task(name, module, *options, **keywords):
    return {"name": name, f"varnex.ffdc.{module}": {k: v for one in options for k, v in one.items()}, **keywords}


def gathered(bmc):
    """How often it was told to gather."""
    return len([r for r in bmc.requests("POST") if "Export" in r["path"]])


def test_check_tells_what_the_bmc_is_and_changes_nothing(ansible, station, start_bmc):
    bmc = start_bmc()

    look = ansible.tasks([task("look", "check", station, reach(bmc))]).of("look")

    assert (look["status"], look["changed"]) == ("ok", False)
    assert (look["outcome"], look["exit_code"], look["retryable"]) == ("checked", 0, False)
    assert look["result"]["bmc"]["serial"] == bmc.ready["machine"]["serial"]
    assert gathered(bmc) == 0


def test_a_whole_archive_that_is_young_is_not_gathered_again(ansible, station, start_bmc):
    bmc = start_bmc(QUICK)
    options = (station, reach(bmc), {"interval": 1})

    played = ansible.tasks([
        task("first", "collect", *options), task("second", "collect", *options),
        task("predicted", "collect", *options, check_mode=True),
    ])

    first, second, predicted = (played.of(name) for name in ("first", "second", "predicted"))
    assert [r["changed"] for r in (first, second, predicted)] == [True, False, False]
    assert [r["fresh"] for r in (first, second, predicted)] == [False, True, True]
    assert first["archive"] == second["archive"] == first["result"]["path"]
    assert second["result"] == first["result"] == json.loads(pathlib.Path(first["archive"] + ".json").read_text())
    assert gathered(bmc) == 1


@pytest.mark.parametrize("change", [
    {"max_age": "0"}, {"max_age": "1s"}, {"log": "mini"}, {"output": "{other}"}, "cut", "removed",
])
def test_what_was_not_asked_for_is_gathered(ansible, station, start_bmc, tmp_path, change):
    bmc = start_bmc(QUICK)
    options = (station, reach(bmc), {"interval": 1, "log": "full"})
    first = ansible.tasks([task("first", "collect", *options)]).of("first")
    archive = pathlib.Path(first["archive"])
    if change == "cut":
        os.truncate(archive, 5)
    elif change == "removed":
        archive.unlink()
    else:
        changed = {name: text.format(other=tmp_path / "other") for name, text in change.items()}
        options += (changed,)
        time.sleep(1.1 if change == {"max_age": "1s"} else 0)

    second = ansible.tasks([task("second", "collect", *options)]).of("second")

    assert (second["status"], second["changed"], second["fresh"]) == ("ok", True, False)
    assert gathered(bmc) == 2


def test_a_bmc_is_asked_by_the_operation_of_the_task(ansible, station, start_bmc, tmp_path):
    services = [{"types": ["Manager", "OS"]}, {"below": "Systems", "id": "Crash", "types": ["OS"]}]
    bmc = start_bmc({"redfish": {"task_step_seconds": 0.05, "diagnostics": {"services": services}}})
    options = (station, reach(bmc), {"interval": 1})
    crash = {"log_service": "/redfish/v1/Systems/1/LogServices/Crash", "diagnostic_type": "OS"}
    all_types = {"all_types": True, "output": str(tmp_path / "all")}
    asked = {
        "export": {}, "named": {"operation": "standard", **crash}, "again": {"operation": "standard", **crash},
        "all": all_types, "all again": {"operation": "standard", **all_types}, "tree": {"operation": "tree"}}

    played = ansible.tasks([
        task("look", "check", station, reach(bmc), {"operation": "standard"}),
        *(task(name, "collect", *options, more) for name, more in asked.items())])

    results = {name: played.of(name) for name in asked}
    assert {name: result["status"] for name, result in results.items()} == dict.fromkeys(asked, "ok"), played.shown
    assert [results[name]["result"]["operation"] for name in asked] == ["oem", *["standard"] * 4, "tree"]
    assert [name for name in asked if results[name]["fresh"]] == ["again", "all again"]
    named = results["named"]["result"]["collections"]
    assert [(one["log_service"], one["type"]) for one in named] == [(crash["log_service"], "OS")]
    assert len(results["all"]["result"]["collections"]) == 3
    assert results["all again"]["archive"] == results["all"]["archive"]
    assert results["tree"]["archive"].endswith("_tree.tar.gz")
    look = played.of("look")["result"]
    assert look["operation"] == "standard" and len(look["log_services"]) == 2


def test_in_check_mode_the_bmc_is_looked_at_and_gathers_nothing(ansible, station, start_bmc):
    bmc = start_bmc(QUICK)
    options = (station, reach(bmc))
    tasks = [
        task("good", "collect", *options),
        task("bad", "collect", *options, {"password": "mistaken"}),
    ]

    played = ansible.tasks(tasks, "--check")

    good, bad = played.of("good"), played.of("bad")
    assert (good["status"], good["changed"], good["outcome"]) == ("ok", True, "checked")
    assert (bad["status"], bad["changed"], bad["outcome"]) == ("failed", False, "login-refused")
    assert gathered(bmc) == 0


def test_a_failure_carries_the_tools_reason(ansible, station, start_bmc):
    bmc, limited = start_bmc(QUICK), start_bmc({"redfish": {"export_action": "missing"}})
    closed = reach(bmc) | {"port": tool.free_port()}

    played = ansible.tasks([
        task("refused", "collect", station, reach(bmc), {"password": "mistaken"}),
        task("closed", "collect", station, closed),
        task("limited", "check", station, reach(limited), {"operation": "oem"}),
        task("usage", "check", station, reach(bmc), {"cipher_suite": 3}),
        task("no password", "check", station, {k: v for k, v in reach(bmc).items() if k != "password"}),
    ])

    def told(name):
        result = played.of(name)
        assert result["status"] == "failed" and result["msg"] == result["reason"] == result["result"]["reason"]
        return result["outcome"], result["exit_code"], result["retryable"]

    assert told("refused") == ("login-refused", 3, False)
    assert told("closed") == ("unreachable", 3, True)
    assert told("limited") == ("limited", 10, False)
    assert told("usage") == ("usage", 2, False)
    assert told("no password") == ("no-password", 2, False)
    assert "does not accept user" in played.of("refused")["msg"]


def test_what_is_wrong_with_the_task_itself_is_said(ansible, station, tmp_path):
    mute = tmp_path / "mute"
    mute.write_text("#!/bin/sh\necho some words >&2\nexit 3\n")
    mute.chmod(0o755)
    host = {"host": "192.0.2.1"}

    played = ansible.tasks([
        task("no tool", "check", station, host, {"executable": "/nonexistent/kemffdc"}),
        task("no result", "check", station, host, {"executable": str(mute)}),
        task("no span", "collect", station, host, {"max_age": "a day"}),
        task("two passwords", "collect", station, host, {"password": "first one", "password_file": "/b"}),
    ])

    assert "/nonexistent/kemffdc" in played.of("no tool")["msg"]
    assert played.of("no result")["msg"].endswith("check 192.0.2.1 ended with 3 and printed no result. some words")
    assert played.of("no span")["msg"] == 'max_age: "a day" is no span of time: a number with s, m, h, d or w'
    assert "mutually exclusive" in played.of("two passwords")["msg"]


def start_by_hand(station, bmc):
    """A run of the same station that the BMC is gathering for."""
    arguments = tool.collect(bmc, station["output"], "--state-dir", station["state_dir"], "--json")
    arguments[arguments.index("--interval") + 1] = "1"
    first = tool.Running(arguments, bmc.password)
    end = time.monotonic() + 20 * tool.SLOWNESS
    while not any(run["task_uri"] for run in runs_of(station)):
        assert time.monotonic() < end, "the run has started no task"
    return first


def runs_of(station):
    command = [tool.TOOL, "history", "--state-dir", station["state_dir"], "--json"]
    return json.loads(subprocess.run(command, capture_output=True, timeout=60, check=True).stdout)["runs"]


def kill(run):
    os.kill(run.process.pid, signal.SIGKILL)
    run.process.communicate()


def test_an_interrupted_run_is_gone_on_with(ansible, station, start_bmc):
    bmc = start_bmc(SLOW)
    kill(start_by_hand(station, bmc))

    second = ansible.tasks([
        task("second", "collect", station, reach(bmc), {"interval": 1})]).of("second")

    assert (second["status"], second["changed"], second["resumed"]) == ("ok", True, 1)
    assert pathlib.Path(second["archive"]).is_file()
    assert gathered(bmc) == 1


def test_a_task_that_is_gone_does_not_end_the_matter(ansible, station, start_bmc):
    bmc = start_bmc({"redfish": {**SLOW["redfish"], "task_states": ["New", {"gone": True}]}})
    kill(start_by_hand(station, bmc))
    time.sleep(SLOW["redfish"]["task_step_seconds"])

    second = ansible.tasks([
        task("second", "collect", station, reach(bmc), {"interval": 1})]).of("second")

    assert "resumed" not in second
    assert gathered(bmc) == 2


def test_what_another_run_brings_is_waited_for_and_taken(ansible, station, start_bmc):
    bmc = start_bmc(SLOW)
    first = start_by_hand(station, bmc)

    played = ansible.tasks([
        task("at once", "collect", station, reach(bmc)),
        task("in turn", "collect", station, reach(bmc), {"wait": True}),
    ])

    at_once, in_turn = played.of("at once"), played.of("in turn")
    ended = first.end()
    assert (at_once["status"], at_once["outcome"], at_once["retryable"]) == ("failed", "locked", True)
    assert (in_turn["status"], in_turn["changed"], in_turn["fresh"]) == ("ok", False, True)
    assert in_turn["archive"] == ended.json["path"]
    assert gathered(bmc) == 1


RECORDER = """#!/bin/sh
{{ printf '%s\\n' "$@"; env; }} >>{log}
exec {tool} "$@"
"""


def test_a_bmc_sends_its_archive_to_a_store_and_no_password_is_seen(ansible, station, start_fleet, tmp_path):
    fleet = start_fleet("--count", "1", "--mix", "cim=1", "--gathering", "0.1")
    bmc, store = fleet["bmcs"][0], fleet["store"]
    password = pathlib.Path(store["password_file"]).read_text().strip()
    recorder = tmp_path / "recorder"
    recorder.write_text(RECORDER.format(log=tmp_path / "seen", tool=tool.TOOL))
    recorder.chmod(0o755)
    station["executable"] = str(recorder)
    del station["output"]
    options = (station, {
        "host": bmc["address"], "port": bmc["port"], "via": "cim", "user": fleet["user"], "password": password,
        "export": {"uri": store["uri"], "user": store["user"], "password": password},
    })

    played = ansible.tasks([
        task("first", "collect", *options), task("second", "collect", *options)], "-vvvv")

    first, second = played.of("first"), played.of("second")
    assert (first["status"], first["changed"], first["outcome"]) == ("ok", True, "exported")
    assert (second["status"], second["changed"], second["fresh"]) == ("ok", False, True)
    assert list(pathlib.Path(store["folder"]).iterdir())
    seen = (tmp_path / "seen").read_text() + played.shown + json.dumps(played.results)
    assert "--export-password-file" in seen and password not in seen
    for left in (*ansible.folder.rglob("*"), *pathlib.Path(station["state_dir"]).rglob("*")):
        if left.is_file() and left.name != "plays.json":  # where the test has written it itself
            assert password.encode() not in left.read_bytes(), left


def test_files_over_ipmi_are_taken_again_as_a_whole(ansible, station, start_fleet):
    if not os.environ.get("VARNEX_PRIVATE_NET"):
        pytest.skip("ports 115 and 623 are to be had in tools/private-net")
    fleet = start_fleet("--count", "1", "--mix", "ipmi=1", "--gathering", "0", "--standard-ports")
    password = pathlib.Path(fleet["credentials"]).with_name("fleet.password").read_text().strip()
    options = (station, {
        "host": fleet["bmcs"][0]["address"], "via": "ipmi", "user": fleet["user"], "password": password})

    first = ansible.tasks([task("first", "collect", *options)]).of("first")
    second = ansible.tasks([task("second", "collect", *options)]).of("second")
    next(pathlib.Path(first["archive"]).iterdir()).unlink()
    third = ansible.tasks([task("third", "collect", *options)], "--check").of("third")

    assert (first["status"], first["changed"], first["outcome"]) == ("ok", True, "downloaded")
    assert (second["changed"], second["fresh"], second["archive"]) == (False, True, first["archive"])
    assert second["result"] == first["result"]
    assert (third["status"], third["changed"]) == ("ok", True)
