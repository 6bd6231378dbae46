# SPDX-License-Identifier: Apache-2.0
"""Looking at a fleet run from elsewhere: beside it, after it was killed, and after it has ended."""

import json
import signal

import pytest

import tool
from fleet_tool import EmulatedFleet, FleetRun, Journal, is_alive, wait_until

GATHERING = 10


@pytest.fixture(name="fleet")
def _fleet(tmp_path, state):
    fleet = EmulatedFleet(tmp_path, "--count", "4", "--gathering", str(GATHERING))
    yield fleet
    fleet.stop()


@pytest.fixture(name="start")
def _start(tmp_path, fleet):
    """Starts fleet commands; whatever still works at the end of the test is killed."""
    started = []

    def start(*arguments):
        started.append(FleetRun(arguments))
        return started[-1]

    yield start
    for one in started:
        if one.process.poll() is None:
            one.kill()


def begin(start, fleet, folder, state):
    """A run in the middle: all of its hosts gather."""
    run = start("collect", fleet.inventory, "--credentials", fleet.credentials, "--interval", "1", "--output", folder)
    wait_until(lambda: Journal(state).states()["gathering"] == 4)
    return run


def look(*arguments):
    return tool.run(["fleet", "status", *arguments])


def test_beside_it_status_shows_it_and_watching_ends_as_it_does(tmp_path, state, fleet, start):
    run = begin(start, fleet, tmp_path / "runs", state)
    words, seen = look(), look("--json")
    watching = start("status", "1", "--watch")

    assert (words.code, words.out.splitlines()[0][:34]) == (0, "Run 1 (collect), 0 of 4 ended, 0:0")
    assert "4 gathering" in words.out and "Next:" not in words.out
    assert (seen.json["live"], seen.json["exit_code"], seen.json["resume"]) == (True, None, None)
    assert seen.json["states"]["gathering"] == 4
    assert run.end().code == 0 and watching.end().code == 0
    assert "4 of 4 hosts done" in watching.out
    after = look("--json")
    assert (after.json["live"], after.json["exit_code"]) == (False, 0)
    assert {host["outcome"] for host in after.json["hosts"]} == {"downloaded"}


def test_after_a_kill_status_says_so_and_how_to_go_on(tmp_path, state, fleet, start):
    run = begin(start, fleet, tmp_path / "runs", state)
    watching = start("status", "--watch")
    for worker in run.kill():
        wait_until(lambda worker=worker: not is_alive(worker))

    killed = look()
    assert killed.code == 0
    assert killed.out.startswith("Run 1 (collect) was killed: 0 of 4 hosts done in ")
    assert killed.out.endswith("Next:    kemffdc fleet resume 1\n")
    assert (look("--json").json["live"], look("--json").json["resume"]) == (False, "kemffdc fleet resume 1")
    assert watching.end().code == 8
    assert "Nobody works on this run any more: it was killed." in watching.err
    assert start("resume").end().code == 0
    assert "4 of 4 hosts done" in look().out


def test_watching_can_be_left_at_any_time(tmp_path, state, fleet, start):
    run = begin(start, fleet, tmp_path / "runs", state)
    watching = start("status", "--watch")
    wait_until(lambda: watching.process.stderr.readline() != "")
    watching.process.send_signal(signal.SIGINT)
    assert watching.process.wait(10) != 0
    assert run.end().code == 0


def test_events_of_a_run_are_as_promised(tmp_path, state, fleet, start):
    ended = tool.run(["fleet", "collect", fleet.inventory, "--credentials", fleet.credentials, "--interval", "1",
                      "--output", tmp_path / "runs", "--events"])
    lines = [json.loads(line) for line in ended.out.splitlines()]
    assert ended.code == 0
    assert [line["number"] for line in lines[:-1]] == list(range(1, len(lines)))
    assert (lines[0]["event"], lines[0]["count"]) == ("fleet-begun", 4)
    states = [line["host"]["state"] for line in lines[1:-1]
              if line["event"] == "host-changed" and line["host"]["name"] == "bmc001"]
    order = ["starting", "reached", "exporting", "gathering", "waiting", "transferring", "done"]
    assert sorted(set(states), key=states.index) == order
    assert lines[-1]["states"]["done"] == 4 and "event" not in lines[-1]
