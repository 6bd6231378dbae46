# SPDX-License-Identifier: Apache-2.0
"""Plays every row of docs/faults.md about the standard's action with the real tool."""

import re

import pytest

import tool
from faults_play import check_texts
from faults_table import rows

HEADING = "Over Redfish, the standard's action"
ROWS = rows(HEADING)
COLLECT = "POST */LogService.CollectDiagnosticData"
MONITOR = "GET */Tasks/1/Monitor"
TASK = "GET */Tasks/1"
DUMP = "/redfish/v1/Managers/1/LogServices/Dump"
ENTRIES = f"GET {DUMP}/Entries"


class Trouble:
    """A fault: how the emulated BMC makes it, and what the tool is given besides."""

    def __init__(self, services=None, states=("Running", "Completed"), answers=None, arguments=(), **diagnostics):
        diagnostics.setdefault("retry_after", 0)
        redfish = {"export_action": "missing", "task_states": list(states), "answers": answers or {},
                   "diagnostics": {"services": [{}] if services is None else services, **diagnostics}}
        self.scenario = {"redfish": redfish}
        self.arguments = ["--operation", "standard", *arguments]


def for_ever(**answer):
    return [{**answer, "repeat": True}]


def ended(state, text):
    return ["Running", {"state": state, "messages": [{"text": text, "severity": "Critical", "resolution": "Ask."}]}]


TROUBLES = {
    "No log service": Trouble(services=[]),
    "A type that is not offered": Trouble(
        services=[{"types": ["Manager", "OEM"], "oem_types": ["Full"]}], arguments=["--diagnostic-type", "OS"]),
    "A log service that is not there": Trouble(arguments=["--log-service", "/redfish/v1/Chassis/1/LogServices/X"]),
    "An action without allowable values": Trouble(services=[{"types": None}]),
    "A type that is offered and refused": Trouble(answers={COLLECT: for_ever(
        status=400, json={"error": {"message": "The partition for dumps is missing."}})}),
    "No right to collect": Trouble(answers={COLLECT: for_ever(status=403)}),
    "An action that is not where it is said to be": Trouble(answers={COLLECT: for_ever(status=404)}),
    "Busy with another collection": Trouble(answers={COLLECT: for_ever(
        status=503, headers={"Retry-After": "600"})}),
    "Busy for a moment, with Retry-After": Trouble(answers={COLLECT: [
        {"status": 503, "headers": {"Retry-After": "0"}}, {"status": 503, "headers": {"Retry-After": "0"}}]}),
    "An answer that is no JSON": Trouble(answers={COLLECT: for_ever(status=200, body="<html>Welcome</html>")}),
    "A body instead of a task": Trouble(answers={COLLECT: for_ever(status=202, json={"Message": "Started."})},
                                        arguments=["--tries", "2"]),
    "Task ends with Exception": Trouble(states=ended("Exception", "No room for the dump."), result="task"),
    "Task is Killed": Trouble(states=ended("Killed", "The watchdog came."), answer="both"),
    "Task is Cancelled": Trouble(states=ended("Cancelled", "Somebody has cancelled it."), answer="both"),
    "Task stays Suspended": Trouble(states=ended("Suspended", "Waiting for the host."), arguments=["--tries", "3"]),
    "Task is Interrupted and goes on": Trouble(states=["Running", "Completed"], answers={
        MONITOR: [{"status": 202, "json": {"TaskState": "Interrupted"}}]}),
    "Monitor ends with an error": Trouble(answers={MONITOR: [{}, *for_ever(status=500)], TASK: for_ever(status=404)}),
    "A task that the BMC has forgotten": Trouble(states=["Running", {"state": "Running", "gone": True}]),
    "A task that is forgotten, and no entry": Trouble(answers={MONITOR: for_ever(status=404)},
                                                     states=["Running"]),
    "No entry appears": Trouble(answer="none", appears_after=3600, arguments=["--tries", "2"]),
    "A log with pages without end": Trouble(
        services=[{"entries": 400, "page": 1, "endless": True}], answer="none", appears_after=3600,
        arguments=["--tries", "1"]),
    "A log whose pages lead in a circle": Trouble(services=[{"entries": 3, "page": 2, "endless": True}]),
    "A link circle": Trouble(answers={"GET /redfish/v1/Systems": for_ever(
        json={"Members": [{"@odata.id": "/redfish/v1/Systems"}, {"@odata.id": "/redfish/v1/Managers/1"}]})}),
    "An entry without data": Trouble(entry={
        "AdditionalDataURI": None, "Oem": {"Tavrin": {"Dump": "/dumps/7"}}, "Message": "Dump 7 is ready."}),
    "Data of 0 bytes": Trouble(data={"kind": "empty"}),
    "Data on another host": Trouble(entry={"AdditionalDataURI": "https://192.0.2.9/dumps/7"}),
    "Data at no place": Trouble(entry={"AdditionalDataURI": "https://[7"}),
    "Data of another size": Trouble(entry={"AdditionalDataSizeBytes": 7}),
    "Data with another hash": Trouble(entry={"Oem": {"Tavrin": {"SHA256": "0" * 64}}}),
    "Data that is gone": Trouble(answers={"GET */attachment": for_ever(status=404)}),
    "Session lost in the middle": Trouble(answers={MONITOR: [{}, {"status": 401}]}),
    "Session lost again and again": Trouble(answers={MONITOR: for_ever(status=401)}),
    "Session lost at the download": Trouble(answers={"GET */attachment": [{"status": 401}] * 2}),
    "No session to be had": Trouble(answers={"POST */SessionService/Sessions": for_ever(status=503)}),
    "503 with Retry-After while it gathers": Trouble(answers={
        MONITOR: [{"status": 503, "headers": {"Retry-After": "0"}}] * 5}),
    "The connection is cut again and again": Trouble(answers={MONITOR: for_ever(cut_after=0, status=200, body="x")}),
}


def test_each_row_has_a_scenario_and_each_scenario_a_row():
    assert sorted(ROWS) == sorted(TROUBLES)


@pytest.mark.parametrize("what", sorted(ROWS))
def test_row(start_bmc, tmp_path, what):
    row, trouble = ROWS[what], TROUBLES[what]
    bmc = start_bmc(trouble.scenario)
    log = tmp_path / "log"
    run = tool.run(tool.collect(bmc, tmp_path / "out", *trouble.arguments, "--log-file", str(log)),
                   password=bmc.password, seconds=60)
    said = run.out + run.err
    assert run.code == row.code, said
    assert re.search(row.pattern(bmc.address, bmc.port), said), said
    check_texts(run, log.read_text(encoding="utf-8"), {bmc.password} | bmc.tokens())
    delivered = tool.files_in(tmp_path / "out") if (tmp_path / "out").exists() else []
    assert bool(delivered) == (run.code in (0, 9)), delivered
    opened = [r for r in bmc.requests("POST") if r["path"].endswith("/Sessions")]
    closed = [r for r in bmc.requests("DELETE")]
    assert len(closed) >= min(len(opened), 1) - (what == "No session to be had") * 1
