# SPDX-License-Identifier: Apache-2.0
"""What an export's task says while it runs and when it ends: percent, messages, and that it is gone."""

from __future__ import annotations

import json
import subprocess
import time
from typing import Any

import pytest

from conftest import EXPORT, FULL_EXPORT, MINI_EXPORT, PROGRAM, ROOT, TASKS, Bmc, Starter


def exported(bmc: Bmc, body: dict = FULL_EXPORT) -> str:
    """The path of a new export's task."""
    return TASKS + bmc.post(EXPORT, body).json()["Id"]


def walked(bmc: Bmc, count: int) -> list[dict[str, Any]]:
    path = exported(bmc)
    return [bmc.get(path).json() for _ in range(count)]


def ids(task: dict[str, Any]) -> list[str]:
    """The keys of its messages in their registries."""
    return [message["MessageId"].rpartition(".")[2] for message in task["Messages"]]


def test_a_task_tells_its_percent_and_the_newest_message_last(start: Starter) -> None:
    bmc = start({"redfish": {"task_states": [
        "New",
        {"state": "Running", "percent": 10, "messages": ["Reading the event log."]},
        {"state": "Running", "percent": 55, "messages": ["Dumping processor 1.", "Dumping processor 2."]},
        "Completed",
    ]}})
    new, first, second, done = walked(bmc, 4)

    assert [task["PercentComplete"] for task in (new, first, second, done)] == [0, 10, 55, 100]
    assert ids(new) == ["TaskStarted"]
    assert [message["Message"] for message in first["Messages"]] == [
        "Task 1 has started.", "Reading the event log."]
    assert [message["Message"] for message in second["Messages"][2:]] == [
        "Dumping processor 1.", "Dumping processor 2."]
    assert ids(done)[-1] == "TaskCompletedOK"
    assert all(set(message) >= {"MessageId", "Message", "MessageArgs", "Severity", "Resolution"}
               for message in done["Messages"])


@pytest.mark.parametrize("state, status, last", [
    ("Completed", "OK", "TaskCompletedOK"),
    ("Exception", "Critical", "InternalError"),
    ("Killed", "Critical", "TaskAborted"),
    ("Cancelled", "Critical", "TaskCancelled"),
    ("Suspended", "OK", "TaskPaused"),
    ("Dreaming", "Critical", "TaskStarted"),
])
def test_each_end_has_its_message(start: Starter, state: str, status: str, last: str) -> None:
    (task,) = walked(start({"redfish": {"task_states": [state]}}), 1)

    assert (task["TaskState"], task["TaskStatus"], ids(task)[-1]) == (state, status, last)


def test_a_scenario_gives_the_reason(start: Starter) -> None:
    bmc = start({"redfish": {"task_states": [{"state": "Dreaming", "status": "Warning", "percent": None, "messages": [
        {"name": "ExportStoreFull", "args": ["sftp://store"]},
        {"text": "Nobody knows.", "severity": "Warning", "resolution": "Ask later."},
        {"json": {"MessageId": "Base.1.8.InternalError"}},
    ]}]}})
    (task,) = walked(bmc, 1)

    assert (task["TaskState"], task["TaskStatus"]) == ("Dreaming", "Warning")
    assert "PercentComplete" not in task
    full, nobody, bare = task["Messages"][1:]
    assert (full["Message"], full["MessageArgs"]) == ("The file store sftp://store is full.", ["sftp://store"])
    assert (nobody["Message"], nobody["Severity"], nobody["Resolution"]) == (
        "Nobody knows.", "Warning", "Ask later.")
    assert bare == {"MessageId": "Base.1.8.InternalError"}


def test_messages_can_be_hostile(start: Starter) -> None:
    bmc = start({"redfish": {"task_states": [{"state": "Exception", "messages": [
        {"fill": 10 << 20}, "\x1b[2J\x07\x00 \u202e", {"json": [[["deep"]]]}, {"json": None},
    ]}]}})
    (task,) = walked(bmc, 1)

    assert len(task["Messages"][1]["Message"]) == 10 << 20
    assert task["Messages"][2]["Message"] == "\x1b[2J\x07\x00 \u202e"
    assert task["Messages"][3:] == [[[["deep"]]], None]


def test_a_task_can_vanish(start: Starter) -> None:
    bmc = start({"redfish": {"task_states": ["Running", {"gone": True}]}})
    path = exported(bmc)

    assert bmc.get(path).json()["TaskState"] == "Running"
    assert [bmc.get(path).status for _ in range(2)] == [404, 404]
    assert bmc.get(path).json()["error"]["code"] == "Base.1.12.ResourceMissingAtURI"
    assert bmc.get(TASKS).json()["Members"] == []


def test_a_task_can_go_by_the_clock(start: Starter) -> None:
    bmc = start({"redfish": {"task_step_seconds": 0.5, "task_states": ["New", "Running", "Completed"]}})
    path = exported(bmc)

    assert {bmc.get(path).json()["TaskState"] for _ in range(5)} <= {"New", "Running"}  # polls are no steps
    time.sleep(1.1)  # nobody asks meanwhile
    task = bmc.get(path).json()
    assert task["TaskState"] == "Completed"
    assert bmc.get(task["Oem"]["Tavrin"]["FFDCForDownloading"]["Path"]).status == 200


def test_the_collection_shows_which_tasks_are_exports(start: Starter) -> None:
    bmc = start()
    full, mini = exported(bmc), exported(bmc, MINI_EXPORT)

    members = [bmc.get(link["@odata.id"]).json() for link in bmc.get(TASKS).json()["Members"]]
    assert [task["@odata.id"] for task in members] == [full, mini]
    assert {task["Name"] for task in members} == {"Export of service data"}
    assert [task["Oem"]["Tavrin"]["DataCollectionType"] for task in members] == ["ProcessorDump", "Mini-log"]
    assert all(task["StartTime"].endswith("Z") for task in members)


def test_every_message_of_a_task_is_in_a_registry(start: Starter) -> None:
    bmc = start({"redfish": {"task_states": ["Running", "Completed"]}})
    messages = [message for task in walked(bmc, 2) for message in task["Messages"]]
    registries = {}
    for link in bmc.get(ROOT + "Registries").json()["Members"]:
        file = bmc.get(bmc.get(link["@odata.id"]).json()["Location"][0]["Uri"]).json()
        registries[file["RegistryPrefix"]] = file

    for message in messages:
        prefix, major, minor, key = message["MessageId"].split(".")
        registry = registries[prefix]
        assert registry["RegistryVersion"].startswith(f"{major}.{minor}.")
        assert registry["Messages"][key]["NumberOfArgs"] == len(message["MessageArgs"])


@pytest.mark.parametrize("step, complaint", [
    ({"percent": 5}, "task_states[0]: state is missing (only a task that is gone has none)"),
    ({"state": ["New"]}, "task_states[0].state: must be text, a number, true, false or null (leaves TaskState out)"),
    ({"state": "New", "colour": 1}, "task_states[0].colour: unknown member; allowed: state, percent, status, "
                                    "messages, gone"),
    ({"state": "New", "messages": [{"text": "a", "fill": 1}]},
     "task_states[0].messages[0]: needs one of text, fill, name, json"),
    ({"state": "New", "messages": [{"name": "TaskStarted"}]},
     "task_states[0].messages[0].args: TaskStarted takes 1, not 0"),
])
def test_steps_that_are_wrong_are_refused(start: Starter, step: dict, complaint: str) -> None:
    file = start.scenario_file(json.dumps({"redfish": {"task_states": [step]}}))
    done = subprocess.run([str(PROGRAM), "--scenario", str(file)], stdin=subprocess.DEVNULL,
                          capture_output=True, text=True, timeout=20)

    assert done.returncode == 2
    assert done.stderr == f"emulated-bmc: {file}:1: redfish.{complaint}\n"
