# SPDX-License-Identifier: Apache-2.0
"""LogService.CollectDiagnosticData as the emulated BMC offers it."""

from __future__ import annotations

import hashlib
import io
import tarfile

import pytest

DUMP = "/redfish/v1/Managers/1/LogServices/Dump"
COLLECT = DUMP + "/Actions/LogService.CollectDiagnosticData"
WANTED = {"DiagnosticDataType": "Manager"}


def diagnostics(service=None, states=("Running", "Completed"), **more):
    return {"redfish": {"task_states": list(states), "diagnostics": {"services": [service or {}], **more}}}


def data_of(bmc, entry):
    found = bmc.get(entry).json()
    answer = bmc.get(found["AdditionalDataURI"])
    assert len(answer.body) == found["AdditionalDataSizeBytes"]
    return answer


def test_without_the_section_there_is_none(start):
    bmc = start()
    assert bmc.get("/redfish/v1/Managers/1/LogServices").json()["Members@odata.count"] == 1
    assert bmc.post(COLLECT, WANTED).status == 404
    assert "LogServices" not in bmc.get("/redfish/v1/Systems/1").json()


def test_the_service_tells_what_it_takes(start):
    bmc = start(diagnostics({"types": ["Manager", "OEM"], "oem_types": ["Full"]}))
    members = [m["@odata.id"] for m in bmc.get("/redfish/v1/Managers/1/LogServices").json()["Members"]]
    assert DUMP in members
    action = bmc.get(DUMP).json()["Actions"]["#LogService.CollectDiagnosticData"]
    assert action["target"] == COLLECT
    assert action["DiagnosticDataType@Redfish.AllowableValues"] == ["Manager", "OEM"]
    for body, message in [({}, "ActionParameterMissing"), ({"DiagnosticDataType": "OS"}, "ActionParameterValueNotInList"),
                          ({"DiagnosticDataType": "OEM"}, "ActionParameterMissing"), ({"X": "y"}, "ActionParameterUnknown")]:
        answer = bmc.post(COLLECT, body)
        assert (answer.status, answer.json()["error"]["code"].rpartition(".")[2]) == (400, message)


def test_values_in_an_action_info_stand_there_alone(start):
    bmc = start(diagnostics({"action_info": True}))
    action = bmc.get(DUMP).json()["Actions"]["#LogService.CollectDiagnosticData"]
    assert set(action) == {"target", "title", "@Redfish.ActionInfo"}
    assert bmc.get(action["@Redfish.ActionInfo"]).json()["Parameters"][0]["AllowableValues"] == ["Manager"]


def test_the_monitor_ends_with_the_operations_own_answer(start):
    bmc = start(diagnostics(answer="monitor"))
    answer = bmc.post(COLLECT, WANTED)
    assert (answer.status, answer.body) == (202, b"")
    monitor = answer.headers["Location"]
    assert bmc.get(monitor).status == 202
    entry = bmc.get(monitor)
    assert entry.status == 200
    with tarfile.open(fileobj=io.BytesIO(data_of(bmc, entry.json()["@odata.id"]).body)) as packed:
        assert packed.getnames() == ["dump/core.bin"]


def test_an_address_with_a_query_leads_nowhere_without_it(start):
    bmc = start(diagnostics(answer="entry", data={"query": "id=7&part=1"}))
    entry = bmc.post(COLLECT, WANTED).json()
    address = entry["AdditionalDataURI"]
    assert address == entry["@odata.id"] + "/attachment?id=7&part=1"
    assert data_of(bmc, entry["@odata.id"]).status == 200
    for other in ("", "?", "?id=7", "?id=7&part=2"):
        assert bmc.get(address.partition("?")[0] + other).status == 404


@pytest.mark.parametrize("named_by, find", [
    ("created-resources", lambda task: task["Links"]["CreatedResources"][0]["@odata.id"]),
    ("header", lambda task: task["Payload"]["HttpHeaders"][1].partition(": ")[2]),
])
def test_a_completed_task_names_its_entry(start, named_by, find):
    bmc = start(diagnostics(answer="task", named_by=named_by))
    answer = bmc.post(COLLECT, WANTED)
    assert answer.status == 202 and "Location" not in answer.headers
    task = bmc.poll_to_end(answer.json()["@odata.id"])
    assert data_of(bmc, find(task.json())).status == 200


def test_one_collection_at_a_time(start):
    bmc = start(diagnostics(states=["Running", "Running", "Completed"], retry_after=7))
    assert bmc.post(COLLECT, WANTED).status == 202
    busy = bmc.post(COLLECT, WANTED)
    assert (busy.status, busy.headers["Retry-After"]) == (503, "7")


def test_an_answer_at_once(start):
    for form, status in [("entry", 200), ("created", 201), ("none", 204)]:
        bmc = start(diagnostics(answer=form))
        answer = bmc.post(COLLECT, WANTED)
        assert answer.status == status
        assert answer.headers.get("Location") == (DUMP + "/Entries/1" if form == "created" else None)
        assert bmc.get(DUMP + "/Entries").json()["Members@odata.count"] == 1


def test_a_task_that_is_forgotten_leaves_its_entry(start):
    bmc = start(diagnostics(states=["Running", {"state": "Running", "gone": True}]))
    task = bmc.post(COLLECT, WANTED).json()["@odata.id"]
    assert bmc.get(task).status == 200
    assert bmc.get(task).status == 404
    assert bmc.get(DUMP + "/Entries").json()["Members@odata.count"] == 1


def test_thousands_of_entries_come_page_by_page(start):
    bmc = start(diagnostics({"entries": 2500, "page": 1000}))
    path, members = DUMP + "/Entries", []
    while path:
        page = bmc.get(path).json()
        members += page["Members"]
        path = page.get("Members@odata.nextLink")
    assert len(members) == 2500 == len({m["@odata.id"] for m in members})


def test_data_has_a_digest_a_name_and_parts_where_wanted(start):
    bmc = start({"redfish": {"download": {"ranges": True}, "diagnostics": {
        "services": [{}], "answer": "created",
        "data": {"kind": "zip", "name": "dump.zip", "content_type": "application/zip", "digest": True}}}})
    entry = bmc.post(COLLECT, WANTED).headers["Location"]
    answer = data_of(bmc, entry)
    assert answer.body.startswith(b"PK\x03\x04")
    assert answer.headers["Content-Type"] == "application/zip" and "dump.zip" in answer.headers["Content-Disposition"]
    assert answer.headers["Repr-Digest"].startswith("sha-256=:")
    uri = bmc.get(entry).json()["AdditionalDataURI"]
    part = bmc.get(uri, headers={"Range": "bytes=10-"})
    assert part.status == 206
    assert hashlib.sha256(answer.body[:10] + part.body).digest() == hashlib.sha256(answer.body).digest()


def test_an_entry_can_be_deleted(start):
    bmc = start(diagnostics({"entries": 1}))
    assert bmc.ask("DELETE", DUMP + "/Entries/1").status == 204
    assert bmc.get(DUMP + "/Entries/1").status == 404
