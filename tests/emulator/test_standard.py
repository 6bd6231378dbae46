# SPDX-License-Identifier: Apache-2.0
"""A strict client of the Redfish standard (DSP0266): methods, links to schemas, schemas, messages of logs."""

from __future__ import annotations

import json
import re
import socket
import xml.etree.ElementTree as ET
from typing import Any, Iterator

import jsonschema
import pytest

from conftest import EMULATOR, EXPORT, MINI_EXPORT, ROOT, SESSIONS, Answer, Bmc, Starter, curl, links_of, trusting_everybody

EDMX, EDM = "{http://docs.oasis-open.org/odata/ns/edmx}", "{http://docs.oasis-open.org/odata/ns/edm}"
DESCRIBED_BY = re.compile("<([^>]+)>; rel=describedby")
FAMILIES = ("TavrinManager", "TavrinServiceData", "TavrinTask")
SERVICE_DATA = ROOT + "Managers/1/Oem/Tavrin/ServiceData"
ENTRIES = ROOT + "Managers/1/LogServices/EventLog/Entries"


def resources(bmc: Bmc) -> Iterator[tuple[str, Answer]]:
    """Every resource that links lead to from the root, each once."""
    seen, waiting = set(), [ROOT]
    while waiting:
        path = waiting.pop().partition("#")[0]
        if path in seen or not path.startswith(ROOT):
            continue
        seen.add(path)
        answer = bmc.get(path)
        if answer.status == 200:
            yield path, answer
            waiting += links_of(answer.json())
        assert len(seen) < 2000


def described_by(answer: Answer) -> str:
    """The address of the schema in the one Link header."""
    found = DESCRIBED_BY.fullmatch(answer.headers.get("Link", ""))
    assert found, answer.headers
    return found[1]


# --- methods ----------------------------------------------------------------------------------


@pytest.mark.parametrize("path", ["/redfish", ROOT, ROOT + "Systems/1", SESSIONS, EXPORT, ROOT + "Nowhere"])
@pytest.mark.parametrize("method", ["FAKEMETHOD", "PROPFIND", "TRACE", "get", "M-POST"])
def test_a_method_that_nobody_knows_is_not_implemented(bmc: Bmc, method: str, path: str) -> None:
    answer = bmc.ask(method, path)

    assert answer.status == 501
    error = answer.json()["error"]
    assert error["code"] == "TavrinMessages.1.0.MethodUnknown"
    assert error["@Message.ExtendedInfo"][0]["MessageArgs"] == [method]


def test_curl_is_told_so_too_and_the_request_is_recorded(start: Starter) -> None:
    bmc = start()
    done = curl("--request", "BREW", "--write-out", "\n%{http_code}", bmc.url + ROOT + "?x=1")

    body, _, status = done.stdout.decode().rpartition("\n")
    assert (done.returncode, status) == (0, "501")
    assert json.loads(body)["error"]["message"] == "The method BREW is not one that this service knows."
    (entry,) = bmc.requests()
    assert (entry["method"], entry["path"], entry["query"]) == ("BREW", ROOT, "x=1")
    assert entry["headers"]["Host"] == f"127.0.0.1:{bmc.port}"


def test_a_scenario_answers_unknown_methods_like_others(start: Starter) -> None:
    bmc = start.answers({"* /redfish/v1/": [{"status": 503}]})

    assert [bmc.ask("BREW", ROOT).status for _ in range(2)] == [503, 501]


@pytest.mark.parametrize("data", [
    b"GET / HTTP/1.1\r\nno colon\r\n\r\n", b"\x16\x03\x01\x00\x05rubbish", b"BREW /\r\n\r\n",
    b"POST / HTTP/1.1\r\nContent-Length: x\r\n\r\n",
])
def test_what_is_wrong_otherwise_is_a_bad_request(bmc: Bmc, data: bytes) -> None:
    with socket.create_connection((bmc.address, bmc.port), timeout=10) as raw:
        with trusting_everybody().wrap_socket(raw) as wire:
            wire.sendall(data)
            assert wire.recv(4096).startswith(b"HTTP/1.0 400 ")


@pytest.mark.parametrize("method", ["PUT", "PATCH", "DELETE", "POST", "OPTIONS"])
def test_a_known_method_that_a_resource_has_not_comes_with_those_it_has(bmc: Bmc, method: str) -> None:
    names = ("odata", "$metadata", "Systems", "Managers/1")
    for path in ("/redfish", ROOT, SERVICE_DATA, *(ROOT + name for name in names)):
        answer = bmc.ask(method, path)
        assert (answer.status, answer.headers["Allow"]) == (405, "GET, HEAD"), path


# --- links to schemas -------------------------------------------------------------------------


def test_every_resource_leads_to_the_schema_of_its_type(bmc: Bmc) -> None:
    own = {}
    for path, answer in resources(bmc):
        schema = described_by(answer)
        type_ = answer.json()["@odata.type"]
        assert schema.rpartition("/")[2] == type_[1:].rpartition(".")[0] + ".json", path
        if not schema.startswith("http://redfish.dmtf.org/schemas/v1/"):
            own[path] = schema

    assert own == {SERVICE_DATA: "/redfish/v1/JsonSchemas/TavrinServiceData.v1_0_0.json"}


@pytest.mark.parametrize("path", [
    ROOT, "/redfish/v1", ROOT + "Systems", ROOT + "Managers/1", SERVICE_DATA, SESSIONS, ENTRIES + "/240",
])
def test_head_leads_there_too(bmc: Bmc, path: str) -> None:
    assert described_by(bmc.ask("HEAD", path)) == described_by(bmc.get(path))


def test_tasks_sessions_and_collected_entries_lead_to_their_schemas(start: Starter) -> None:
    bmc = start(EMULATOR / "scenarios" / "standard-diagnostics.yaml")
    session = bmc.post(SESSIONS, {"UserName": bmc.user, "Password": bmc.password}).headers["Location"]
    action = ROOT + "Managers/1/LogServices/Dump/Actions/LogService.CollectDiagnosticData"
    task = bmc.post(action, {"DiagnosticDataType": "Manager"}).headers["Location"].removesuffix("/Monitor")

    assert described_by(bmc.get(session)).endswith("/Session.v1_5_0.json")
    assert described_by(bmc.get(task)).endswith("/Task.v1_7_0.json")
    assert described_by(bmc.get(ROOT + "Managers/1/LogServices/Dump")).endswith("/LogService.v1_4_0.json")
    assert described_by(bmc.get(ROOT + "Managers/1/LogServices/Dump/Entries")).endswith("/LogEntryCollection.json")


def test_what_is_no_resource_has_no_schema(bmc: Bmc) -> None:
    for path in ("/redfish", ROOT + "odata", ROOT + "$metadata", bmc.archive["path"], ROOT + "Nowhere"):
        assert "Link" not in bmc.get(path).headers


@pytest.mark.parametrize("shape, own", [
    ("harrow", {ROOT + "Managers/Self/Oem" + rest for rest in ("", "/Harrow", "/Harrow/Alerts")}),
    ("quillon", {ROOT + rest for rest in ("Oem/Quillon/Frame", "Managers/Frame/Oem")}),
])
def test_of_another_vendors_own_types_no_schema_is_promised(start: Starter, shape: str, own: set[str]) -> None:
    bmc = start(EMULATOR / "scenarios" / f"shape-{shape}.yaml")
    without = {path for path, answer in resources(bmc) if "Link" not in answer.headers}

    assert without == own
    assert f"\"{shape.title()}".encode() not in bmc.get(ROOT + "$metadata").body


# --- the vendor's own schemas -----------------------------------------------------------------


def test_metadata_leads_to_the_vendors_schemas_and_they_declare_what_it_names(bmc: Bmc) -> None:
    metadata = ET.fromstring(bmc.get(ROOT + "$metadata", anonymous=True).body)
    own = {
        one.get("Uri"): {include.get("Namespace") for include in one}
        for one in metadata.iter(EDMX + "Reference") if one.get("Uri").startswith("/")
    }

    assert set(own) == {f"/redfish/v1/Schemas/{family}_v1.xml" for family in FAMILIES}
    for uri, named in own.items():
        answer = bmc.get(uri)
        assert (answer.status, answer.headers["Content-Type"]) == (200, "application/xml; charset=utf-8")
        assert bmc.ask("HEAD", uri).status == 200
        assert {schema.get("Namespace") for schema in ET.fromstring(answer.body).iter(EDM + "Schema")} == named


def test_each_reference_of_a_vendors_schema_is_there_or_the_standards(bmc: Bmc) -> None:
    for family in FAMILIES:
        schema = ET.fromstring(bmc.get(f"/redfish/v1/Schemas/{family}_v1.xml").body)
        for uri in (one.get("Uri") for one in schema.iter(EDMX + "Reference")):
            is_standard = uri.startswith(("http://redfish.dmtf.org/", "http://docs.oasis-open.org/"))
            assert is_standard or bmc.get(uri).status == 200


def test_the_csdl_declares_what_oem_members_hold(bmc: Bmc) -> None:
    def declared(family: str, type_: str) -> set[str]:
        schema = ET.fromstring(bmc.get(f"/redfish/v1/Schemas/{family}_v1.xml").body)
        (latest,) = (one for one in schema.iter(EDM + "Schema") if one.get("Namespace") == f"{family}.v1_0_0")
        (wanted,) = (one for one in latest if one.get("Name") == type_)
        return {one.get("Name") for one in wanted if "Property" in one.tag}

    task = bmc.poll_to_end(bmc.post(EXPORT, MINI_EXPORT).json()["@odata.id"]).json()["Oem"]["Tavrin"]
    manager = bmc.get(ROOT + "Managers/1").json()["Oem"]["Tavrin"]
    for oem in (task, manager):
        _, family, type_ = re.split(r"[#.]v?\d?", oem["@odata.type"].replace(".v1_0_0", ""))
        assert declared(family, type_) == set(oem) - {"@odata.type"}
    assert declared("TavrinTask", "FFDCForDownloading") == set(task["FFDCForDownloading"])


def test_the_service_data_is_as_its_json_schema_says(bmc: Bmc) -> None:
    found = bmc.get(SERVICE_DATA)
    answer = bmc.get(described_by(found))
    schema = answer.json()

    assert answer.headers["Content-Type"] == "application/schema+json"
    jsonschema.Draft7Validator.check_schema(schema)
    jsonschema.validate(found.json(), {**schema, "$id": "http://127.0.0.1/"})
    assert schema["title"] == found.json()["@odata.type"]
    with pytest.raises(jsonschema.ValidationError):
        jsonschema.validate({**found.json(), "More": 1}, {**schema, "$id": "http://127.0.0.1/"})


@pytest.mark.parametrize("path", [
    "Schemas/Nothing_v1.xml", "Schemas/TavrinServiceData.v1_0_0.json", "JsonSchemas/..%2Fschemas.py", "Schemas/",
    "Schemas/*.xml",
])
def test_other_schemas_are_not_there(bmc: Bmc, path: str) -> None:
    assert bmc.get(ROOT + path).status == 404


# --- messages of logs -------------------------------------------------------------------------


def registries(bmc: Bmc) -> dict[str, Any]:
    """The messages of all registries, by the beginning of their identifiers."""
    found = {}
    for member in bmc.get(ROOT + "Registries").json()["Members"]:
        file = bmc.get(member["@odata.id"]).json()
        found[file["Registry"]] = bmc.get(file["Location"][0]["Uri"]).json()["Messages"]
    return found


def check_entry(entry: Any, known: dict[str, Any]) -> None:
    """The message of an entry is that of its registry, filled with its arguments."""
    registry, _, key = entry["MessageId"].rpartition(".")
    message = known[registry][key]
    assert len(entry["MessageArgs"]) == message["NumberOfArgs"]
    text = re.sub("%([1-9])", lambda place: entry["MessageArgs"][int(place[1]) - 1], message["Message"])
    assert entry["Message"] == text
    assert (entry["Severity"], entry["Resolution"]) == (message["Severity"], message["Resolution"])


def test_each_event_of_the_log_is_a_message_of_a_registry(bmc: Bmc) -> None:
    known = registries(bmc)
    entries = bmc.get(ENTRIES).json()["Members"]

    assert len(entries) == 40 and len({entry["MessageId"] for entry in entries}) > 3
    for entry in entries:
        check_entry(entry, known)
    check_entry(bmc.get(entries[0]["@odata.id"]).json(), known)


def test_so_is_each_entry_of_collected_data(start: Starter) -> None:
    bmc = start({"redfish": {"task_states": ["Completed"], "diagnostics": {
        "services": [{"id": "Dump", "types": ["Manager"], "entries": 3}], "answer": "none"}}})
    log = ROOT + "Managers/1/LogServices/Dump"
    assert bmc.post(log + "/Actions/LogService.CollectDiagnosticData", {"DiagnosticDataType": "Manager"}).status == 204
    known = registries(bmc)
    members = [bmc.get(one["@odata.id"]).json() for one in bmc.get(log + "/Entries").json()["Members"]]

    assert len(members) == 4
    for entry in members:
        check_entry(entry, known)


@pytest.mark.parametrize("shape, log", [
    ("harrow", "Managers/Self/LogServices/SEL"), ("quillon", "Managers/Frame/LogServices/Ring"),
])
def test_so_is_each_entry_of_another_vendor(start: Starter, shape: str, log: str) -> None:
    bmc = start(EMULATOR / "scenarios" / f"shape-{shape}.yaml")
    known = registries(bmc)

    for number in range(1, 12):
        check_entry(bmc.get(f"{ROOT}{log}/Entries/{number}").json(), known)
