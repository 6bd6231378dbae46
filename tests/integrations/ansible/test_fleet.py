# SPDX-License-Identifier: Apache-2.0
"""The module for all BMCs of a station: once each, whatever became of the run before."""

import json
import os
import pathlib
import signal
import subprocess

import pytest
import yaml

import controller
import stations
import tool


@pytest.fixture
def station(tmp_path):
    """Options that name the folders of a station."""
    return {
        "executable": tool.TOOL,
        "state_dir": str(tmp_path / "state"),
        "output": str(tmp_path / "runs"),
        "settings": {"interval": 1},
        "retry_pause": "1s",
    }


@pytest.fixture
def bmcs(start_fleet, tmp_path):
    """Starts emulated BMCs; what they say, and the options that name them."""

    def start(*arguments):
        ready = start_fleet("--inventory", tmp_path / "fleet.yaml", *arguments)
        return ready, {"inventory": ready["inventory"], "credentials": ready["credentials"]}

    return start


def task(name, *options, **keywords):
    return {"name": name, "varnex.ffdc.fleet": {k: v for one in options for k, v in one.items()}, **keywords}


def gathered(ready):
    """How often each BMC was told to gather."""
    return {bmc["name"]: controller.gathered(bmc) for bmc in ready["bmcs"]}


def told(result):
    return [result[name] for name in ("status", "changed", "fresh", "resumed", "done", "total")]


def test_a_station_gathers_its_bmcs_once(ansible, station, bmcs):
    ready, options = bmcs("--count", "5", "--gathering", "0.2")

    played = ansible.tasks([
        task("predicted", station, options, check_mode=True), task("first", station, options),
        task("second", station, options), task("foreseen", station, options, check_mode=True),
        task("a part", station, options, {"limit": "bmc00[1-2]"}),
        task("checked", station, options, {"command": "check"}),
    ])

    assert told(played.of("predicted"))[:4] == ["ok", True, False, False]
    assert told(played.of("first")) == ["ok", True, False, False, 5, 5]
    assert told(played.of("second")) == ["ok", False, True, False, 5, 5]
    assert told(played.of("foreseen")) == ["ok", False, True, False, 5, 5]
    assert told(played.of("a part")) == ["ok", False, True, False, 2, 2]
    assert told(played.of("checked"))[:4] == ["ok", False, False, False]
    assert set(gathered(ready).values()) == {1}
    first = played.of("first")
    assert first["exit_code"] == 0 and first["outcomes"][0]["hosts"] == "bmc[001-005]"
    assert first["folder"] == played.of("second")["folder"]
    assert len(tool.archives_in(first["folder"] + "/bmc003")) == 1
    assert len(json.loads(pathlib.Path(first["report"]).read_text())["hosts"]) == 5


def test_bmcs_of_several_makes_are_asked_as_they_can_be_or_as_the_settings_say(ansible, station, bmcs):
    ready, options = bmcs("--count", "3", "--gathering", "0.2", "--mix", "redfish=1,standard=1,tree=1")

    played = ansible.tasks([
        task("found out", station, options),
        task("trees", station, options, {"max_age": "0", "settings": {"interval": 1, "operation": "tree"}}),
    ])

    def operations(name):
        report = json.loads(pathlib.Path(played.of(name)["report"]).read_text())
        return {host["name"]: host["operation"] for host in report["hosts"]}

    assert told(played.of("found out")) == ["ok", True, False, False, 3, 3]
    assert operations("found out") == {bmc["name"]: bmc["operation"] for bmc in ready["bmcs"]}
    assert told(played.of("trees")) == ["ok", True, False, False, 3, 3]
    assert set(operations("trees").values()) == {"tree"}


def test_shares_of_several_stations_have_each_bmc_once(ansible, station, bmcs):
    ready, options = bmcs("--count", "9", "--gathering", "0.1")

    played = ansible.tasks([
        task(f"share {n}", station, options, {"shard": f"{n}/3", "output": f"{station['output']}{n}"})
        for n in (1, 2, 3)])

    shares = [played.of(f"share {n}") for n in (1, 2, 3)]
    assert sum(share["done"] for share in shares) == sum(share["total"] for share in shares) == 9
    assert set(gathered(ready).values()) == {1}


def test_what_fails_is_told_and_tried_again_and_what_is_done_is_not(ansible, station, bmcs):
    ready, options = bmcs("--count", "4", "--gathering", "0.1")
    good = pathlib.Path(ready["credentials"])
    wrong = good.with_name("wrong.yaml")
    pathlib.Path(good.with_name("wrong.password")).write_text("mistaken\n")
    wrong.write_text(good.read_text().replace("fleet.password", "wrong.password"))
    wrong.chmod(0o600)
    one = {"limit": "bmc002"}
    station["retries"] = 0

    played = ansible.tasks([
        task("none", station, options, one, {"credentials": str(wrong)}),
        task("again", station, options, one),
        task("no list", station, {"inventory": "/nonexistent.yaml"}),
        task("no member", station, options, {"settings": {"intervall": 1}}),
    ])

    none, again = played.of("none"), played.of("again")
    assert told(none) == ["failed", False, False, False, 0, 1] and none["exit_code"] == 21
    assert none["outcomes"] == [{"outcome": "login-refused", "title": "wrong password", "count": 1, "hosts": "bmc002"}]
    assert none["msg"] == none["reason"] != ""
    assert told(again) == ["ok", True, False, True, 1, 1]
    assert again["folder"] == none["folder"]
    assert played.of("no list")["exit_code"] in (2, 8) and "/nonexistent.yaml" in played.of("no list")["msg"]
    assert played.of("no member")["exit_code"] == 2 and "intervall" in played.of("no member")["msg"]


def test_a_part_that_is_not_done_is_a_failure_by_default(ansible, station, bmcs):
    _, options = bmcs("--count", "2", "--gathering", "0.1")
    inventory = pathlib.Path(options["inventory"])
    listed = yaml.safe_load(inventory.read_text())
    listed["groups"]["redfish"]["hosts"]["absent"] = {"address": "127.0.9.9", "port": tool.free_port()}
    inventory.write_text(yaml.safe_dump(listed))
    station["retries"] = 0

    played = ansible.tasks([
        task("strict", station, options), task("lenient", station, options, {"allow_partial": True})])

    strict, lenient = played.of("strict"), played.of("lenient")
    assert told(strict) == ["failed", True, False, False, 2, 3] and strict["exit_code"] == 20
    assert told(lenient) == ["ok", False, False, True, 2, 3] and lenient["exit_code"] == 20
    assert [o["hosts"] for o in strict["outcomes"] if o["outcome"] == "unreachable"] == ["absent"]


def start_by_hand(station, options):
    """The conductor of a run of the same station."""
    command = [
        tool.TOOL, "fleet", "collect", options["inventory"], "--credentials", options["credentials"],
        "--output", station["output"], "--state-dir", station["state_dir"], "--interval", "1", "--json",
    ]
    return subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                            env=tool.clean_environment() | controller.sanitizers())


def test_a_run_whose_conductor_was_killed_is_gone_on_with(ansible, station, bmcs):
    ready, options = bmcs("--count", "5", "--gathering", "6")
    conductor = start_by_hand(station, options)
    stations.wait_until(lambda: all(gathered(ready).values()), "every BMC gathers")
    os.kill(conductor.pid, signal.SIGKILL)
    conductor.communicate()

    played = ansible.tasks([task("second", station, options)])

    assert told(played.of("second")) == ["ok", True, False, True, 5, 5]
    assert set(gathered(ready).values()) == {1}


def test_a_run_that_works_still_is_waited_for(ansible, station, bmcs):
    ready, options = bmcs("--count", "3", "--gathering", "8")
    conductor = start_by_hand(station, options)
    stations.wait_until(lambda: any(gathered(ready).values()), "a BMC gathers")

    played = ansible.tasks([task("second", station, options)])

    assert told(played.of("second")) == ["ok", True, True, False, 3, 3]
    assert conductor.wait(60) == 0
    conductor.stdout.close()
    assert set(gathered(ready).values()) == {1}
