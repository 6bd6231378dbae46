# SPDX-License-Identifier: Apache-2.0
"""The export action, its tasks and the archives."""

from __future__ import annotations

import hashlib
import io
import json
import os
import stat
import tarfile
import time
from pathlib import Path
from typing import Any

import pytest

from conftest import EXPORT, FULL_EXPORT, MINI_EXPORT, ROOT, TASKS, Bmc, Starter


def unpack(data: bytes) -> dict[str, bytes]:
    """The members of an archive; fails on a damaged one."""
    with tarfile.open(fileobj=io.BytesIO(data), mode="r:gz") as archive:
        files = {m.name: archive.extractfile(m).read() for m in archive.getmembers()}
    assert all(files.values())
    return files


def names_an_archive(task: dict) -> bool:
    return "FFDCForDownloading" in task["Oem"]["Tavrin"]


def run_export(bmc: Bmc, body: dict) -> str:
    """Exports and returns the path that the finished task names."""
    accepted = bmc.post(EXPORT, body)
    assert accepted.status == 202
    ended = bmc.poll_to_end(TASKS + accepted.json()["Id"]).json()
    assert ended["TaskState"] == "Completed"
    return ended["Oem"]["Tavrin"]["FFDCForDownloading"]["Path"]


def test_the_action_is_found_where_the_manager_says(bmc: Bmc) -> None:
    manager = bmc.get(ROOT + "Managers/1").json()
    service_data = bmc.get(manager["Oem"]["Tavrin"]["ServiceData"]["@odata.id"]).json()

    action = service_data["Actions"]["#TavrinServiceData.ExportFFDCData"]
    assert action["target"] == EXPORT
    assert action["DataCollectionType@Redfish.AllowableValues"] == ["ProcessorDump", "Mini-log"]


def test_an_accepted_export_is_a_task(bmc: Bmc) -> None:
    answer = bmc.post(EXPORT, FULL_EXPORT)

    task = answer.json()
    assert answer.status == 202
    assert task["@odata.id"] == TASKS + task["Id"]
    assert task["TaskState"] == "New"
    assert answer.headers["Location"] == task["TaskMonitor"]
    assert {"@odata.id": task["@odata.id"]} in bmc.get(TASKS).json()["Members"]


def test_a_task_makes_one_step_per_poll_and_stays_at_its_end(start: Starter) -> None:
    bmc = start({"redfish": {"task_states": ["New", "Starting", "Running", "Completed"]}})
    path = TASKS + bmc.post(EXPORT, FULL_EXPORT).json()["Id"]

    answers = []
    for _ in range(6):
        bmc.ask("HEAD", path)  # looks without being a poll
        answers.append(bmc.get(path).json())
    assert [a["TaskState"] for a in answers] == [
        "New", "Starting", "Running", "Completed", "Completed", "Completed"
    ]
    assert [(names_an_archive(a), "EndTime" in a) for a in answers] == [(False, False)] * 3 + [(True, True)] * 3
    assert len({a["EndTime"] for a in answers[3:]}) == 1
    assert answers[3]["PercentComplete"] == 100 and answers[3]["TaskStatus"] == "OK"


def test_each_task_walks_by_itself(start: Starter) -> None:
    bmc = start({"redfish": {"task_states": ["New", "Completed"]}})
    first, second = (TASKS + bmc.post(EXPORT, FULL_EXPORT).json()["Id"] for _ in range(2))

    bmc.get(first)
    assert bmc.get(first).json()["TaskState"] == "Completed"
    assert bmc.get(second).json()["TaskState"] == "New"


@pytest.mark.parametrize("state", ["Killed", "Exception", "Dreaming", "", 5, None, True])
def test_any_state_can_be_the_last(start: Starter, state: Any) -> None:
    bmc = start({"redfish": {"task_states": [state]}})
    task = bmc.get(TASKS + bmc.post(EXPORT, FULL_EXPORT).json()["Id"]).json()

    assert task.get("TaskState", "missing") == ("missing" if state is None else state)
    assert task["TaskStatus"] == "Critical"
    assert not names_an_archive(task)


def test_the_monitor_answers_202_until_the_end(start: Starter) -> None:
    bmc = start({"redfish": {"task_states": ["Running", "Completed"]}})
    monitor = bmc.post(EXPORT, FULL_EXPORT).headers["Location"]

    assert [bmc.get(monitor).status for _ in range(3)] == [202, 200, 200]


@pytest.mark.parametrize("body, code", [
    ("{", "MalformedJSON"),
    ("\xff".encode("latin-1"), "MalformedJSON"),
    ("3", "UnrecognizedRequestBody"),
    ({}, "ActionParameterMissing"),
    ({"InitializationNeeded": True}, "ActionParameterMissing"),
    ({**FULL_EXPORT, "InitializationNeeded": "true"}, "ActionParameterValueTypeError"),
    ({**FULL_EXPORT, "InitializationNeeded": 1}, "ActionParameterValueTypeError"),
    ({**FULL_EXPORT, "DataCollectionType": 1}, "ActionParameterValueTypeError"),
    ({**FULL_EXPORT, "DataCollectionType": "Everything"}, "ActionParameterValueNotInList"),
    ({**FULL_EXPORT, "Password": None}, "ActionParameterValueTypeError"),
    ({**FULL_EXPORT, "Colour": "red"}, "ActionParameterUnknown"),
    ({**FULL_EXPORT, "ExportURI": "ftp://host/"}, "ActionParameterValueFormatError"),
    ({**FULL_EXPORT, "ExportURI": "sftp:///x"}, "ActionParameterValueFormatError"),
    ({**FULL_EXPORT, "ExportURI": "sftp://host/a b"}, "ActionParameterValueFormatError"),
    ({**FULL_EXPORT, "ExportURI": "sftp://host/", "Password": "a\0b"}, "ActionParameterValueFormatError"),
])
def test_an_export_that_is_wrong_is_refused(bmc: Bmc, body: Any, code: str) -> None:
    before = bmc.get(TASKS).json()["Members@odata.count"]
    answer = bmc.post(EXPORT, body)

    assert (answer.status, answer.json()["error"]["code"]) == (400, "Base.1.12." + code)
    assert bmc.get(TASKS).json()["Members@odata.count"] == before


def test_the_long_form_with_an_empty_uri_is_a_download(bmc: Bmc) -> None:
    long_form = {**FULL_EXPORT, "Username": "u", "Password": "p", "ExportURI": ""}

    assert run_export(bmc, long_form) == bmc.archive["path"]


def test_an_account_that_may_only_read_may_not_export(start: Starter) -> None:
    bmc = start({"role": "ReadOnly"})

    answer = bmc.post(EXPORT, FULL_EXPORT)
    assert answer.status == 403
    assert answer.json()["error"]["code"] == "Base.1.12.InsufficientPrivilege"
    assert bmc.get("/redfish/v1/Systems").status == 200


# --- archives ---------------------------------------------------------------------------------


def test_both_archives_are_real_and_differ(bmc: Bmc) -> None:
    full = bmc.get(run_export(bmc, FULL_EXPORT))
    mini = bmc.get(run_export(bmc, MINI_EXPORT))

    assert full.headers["Content-Type"] == "application/gzip"
    for data, facts in ((full.body, "full"), (mini.body, "mini")):
        assert len(data) == bmc.ready["archives"][facts]["size"]
        assert hashlib.sha256(data).hexdigest() == bmc.ready["archives"][facts]["sha256"]
    assert bmc.ready["archives"]["full"] == bmc.archive
    full_files, mini_files = unpack(full.body), unpack(mini.body)
    assert json.loads(full_files["ffdc/manifest.json"])["Collection"] == "ProcessorDump"
    assert json.loads(mini_files["ffdc/manifest.json"])["Collection"] == "Mini-log"
    assert set(mini_files) < set(full_files)
    for name in ("event_log/events.txt", "sensors/readings.json", "inventory/system.json",
                 "console/host_console.log", "dumps/processor1_registers.txt"):
        assert "ffdc/" + name in full_files


def test_the_archive_and_the_service_tell_of_the_same_machine(bmc: Bmc) -> None:
    manifest = json.loads(unpack(bmc.get(bmc.archive["path"]).body)["ffdc/manifest.json"])
    system = bmc.get(ROOT + "Systems/1").json()

    assert manifest["SerialNumber"] == system["SerialNumber"]
    assert manifest["UUID"] == system["UUID"]


@pytest.mark.parametrize("size", [1500, 3000, 20000, 40000, 40001, 65535 + 40000, 1 << 20, (1 << 20) + 1,
                                  (8 << 20) + 511])
def test_an_archive_has_the_size_asked_for_and_is_sound(start: Starter, size: int) -> None:
    bmc = start({"redfish": {"archive": {"size": size}}})
    data = bmc.get(bmc.archive["path"]).body

    assert len(data) == size == bmc.archive["size"]
    assert "ffdc/manifest.json" in unpack(data)


def test_every_size_around_a_block_is_met(start: Starter, tmp_path: Path) -> None:
    import sys

    sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "emulator"))
    from bmc.archive import plan_archives
    from bmc.machine import Machine

    for size in [*range(34000, 35200, 7), *range(131060, 131080)]:
        made = plan_archives(Machine(1), size, None, "x.tar.gz")["full"].make(tmp_path / "a")
        assert made.file.stat().st_size == size
        unpack(made.file.read_bytes())


def test_an_archive_of_no_bytes(start: Starter) -> None:
    bmc = start({"redfish": {"archive": {"size": 0}}})

    answer = bmc.get(bmc.archive["path"])
    assert (answer.status, answer.body, answer.headers["Content-Length"]) == (200, b"", "0")


def test_a_seed_makes_the_same_archive_again(start: Starter) -> None:
    scenario = {"redfish": {"archive": {"seed": 7, "size": 300000}}}
    first, second = start(scenario), start(scenario)
    other = start({"redfish": {"archive": {"seed": 8, "size": 300000}}})

    assert {**first.archive, "file": ""} == {**second.archive, "file": ""}
    assert first.archive["sha256"] != other.archive["sha256"]


def test_512_mib_start_quickly_and_stay_out_of_memory(start: Starter) -> None:
    began = time.monotonic()
    bmc = start({"redfish": {"archive": {"size": 512 << 20}}})
    assert time.monotonic() - began < 20  # about 2 on an idle machine
    digest, size = hashlib.sha256(), 0
    connection = bmc.connect()
    connection.request("GET", bmc.archive["path"], headers=bmc.basic())
    answer = connection.getresponse()
    while data := answer.read(1 << 20):
        digest.update(data)
        size += len(data)
    connection.close()

    assert (size, digest.hexdigest()) == (512 << 20, bmc.archive["sha256"])
    status = Path(f"/proc/{bmc.process.pid}/status").read_text()
    peak = int(status.split("VmHWM:")[1].split()[0])
    assert peak < 200 * 1024  # KiB


def test_state_goes_into_a_folder_that_is_asked_for_and_stays(start: Starter, tmp_path: Path) -> None:
    folder = tmp_path / "state"
    bmc = start(None, "--state-dir", str(folder))
    bmc.get(ROOT)
    bmc.stop()

    assert (folder / "cert.pem").exists() and len(bmc.requests()) == 1
    assert stat.S_IMODE(os.stat(folder / "key.pem").st_mode) == 0o600
    assert hashlib.sha256(Path(bmc.archive["file"]).read_bytes()).hexdigest() == bmc.archive["sha256"]


def test_state_in_a_folder_of_its_own_goes_at_the_end(start: Starter) -> None:
    bmc = start()
    folder = Path(bmc.ready["requests"]).parent
    assert folder.exists()
    bmc.stop()

    assert not folder.exists()
