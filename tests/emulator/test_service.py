# SPDX-License-Identifier: Apache-2.0
"""The Redfish service as any client sees it."""

from __future__ import annotations

import json
import re
import socket
from typing import Any

import pytest

from conftest import EXPORT, FULL_EXPORT, NO_USER, ROOT, SESSIONS, TASKS, Bmc, Starter, links_of


def walk(bmc: Bmc) -> dict[str, dict]:
    """Every resource that can be reached from the service root."""
    found: dict[str, dict] = {}
    waiting = [ROOT]
    while waiting:
        path = waiting.pop().partition("#")[0]
        if path in found:
            continue
        answer = bmc.get(path)
        assert answer.status == 200, path
        found[path] = answer.json()
        waiting += links_of(found[path])
    return found


def test_every_link_from_the_service_root_leads_to_a_resource_that_names_itself(bmc: Bmc) -> None:
    found = walk(bmc)

    for path, document in found.items():
        assert document["@odata.id"] == path
        assert re.fullmatch(r"#\w+(\.v\d+_\d+_\d+)?\.\w+", document["@odata.type"]), path
        assert document["Name"]
        if "Members" in document:
            assert document["Members@odata.count"] == len(document["Members"])
        else:
            assert document["Id"]
    for name in ("Systems/1", "Chassis/1/Thermal", "Managers/1/Oem/Tavrin/ServiceData", "Registries",
                 "SessionService/Sessions", "TaskService/Tasks", "AccountService/Accounts/1"):
        assert ROOT + name in found
    assert len(found) > 50


def test_metadata_and_type_names_agree(bmc: Bmc) -> None:
    metadata = bmc.get(ROOT + "$metadata", anonymous=True)

    assert metadata.headers["Content-Type"].startswith("application/xml")
    for document in walk(bmc).values():
        namespace = document["@odata.type"][1:].rpartition(".")[0]
        assert f'Namespace="{namespace}"'.encode() in metadata.body


def test_odata_document_lists_what_the_root_links_to(bmc: Bmc) -> None:
    entries = bmc.get(ROOT + "odata", anonymous=True).json()["value"]

    urls = {entry["name"]: entry["url"] for entry in entries}
    assert urls["Systems"] == "/redfish/v1/Systems"
    assert all(bmc.get(url).status == 200 for url in urls.values())


@pytest.mark.parametrize("path", ["/redfish", "/redfish/", "/redfish/v1", "/redfish/v1/",
                                  "/redfish/v1/odata", "/redfish/v1/$metadata"])
def test_public_resources_need_no_credentials(bmc: Bmc, path: str) -> None:
    assert bmc.get(path, anonymous=True).status == 200


def test_versions_point_to_the_root(bmc: Bmc) -> None:
    assert bmc.get("/redfish", anonymous=True).json() == {"v1": "/redfish/v1/"}


@pytest.mark.parametrize("path", ["/redfish/v1/Systems", SESSIONS, TASKS + "8A6CA3D3EC",
                                  "/redfish/v1/Nonsense", "/download/ffdc/x.tar.gz"])
@pytest.mark.parametrize("headers", [
    {},
    {"Authorization": "Basic YWRtaW46d3Jvbmc="},
    {"Authorization": "Basic !!!"},
    {"Authorization": "Bearer abc"},
    {"X-Auth-Token": "0123456789abcdef"},
], ids=["none", "wrong", "malformed", "bearer", "token"])
def test_everything_else_asks_for_credentials(bmc: Bmc, path: str, headers: dict) -> None:
    answer = bmc.get(path, headers=headers, anonymous=True)

    assert answer.status == 401
    assert answer.headers["WWW-Authenticate"] == 'Basic realm="Redfish"'
    assert NO_USER in answer.body.decode()
    assert answer.json()["error"]["message"] == NO_USER


def test_export_and_download_ask_for_credentials(bmc: Bmc) -> None:
    assert bmc.post(EXPORT, FULL_EXPORT, anonymous=True).status == 401
    assert bmc.get(bmc.archive["path"], anonymous=True).status == 401


def test_a_wrong_token_is_not_saved_by_right_basic_credentials(bmc: Bmc) -> None:
    assert bmc.get("/redfish/v1/Systems", headers={"X-Auth-Token": "old"}).status == 401


def test_errors_have_the_form_of_the_standard(bmc: Bmc) -> None:
    answer = bmc.get("/redfish/v1/Systems/7")

    error = answer.json()["error"]
    assert answer.status == 404
    assert error["code"] == "Base.1.12.ResourceMissingAtURI"
    info = error["@Message.ExtendedInfo"][0]
    assert info["MessageId"] == error["code"]
    assert info["MessageArgs"] == ["/redfish/v1/Systems/7"]
    assert info["Message"] == error["message"] == "The resource at the URI /redfish/v1/Systems/7 was not found."
    assert info["Severity"] == "Critical" and info["Resolution"]


def test_answers_carry_the_usual_headers(bmc: Bmc) -> None:
    answer = bmc.get("/redfish/v1/Systems")

    assert answer.headers["OData-Version"] == "4.0"
    assert answer.headers["Allow"] == "GET, HEAD"
    assert answer.headers["Content-Type"] == "application/json; charset=utf-8"
    assert int(answer.headers["Content-Length"]) == len(answer.body)


def test_an_etag_that_is_known_saves_the_body(bmc: Bmc) -> None:
    tag = bmc.get("/redfish/v1/Systems").headers["ETag"]

    again = bmc.get("/redfish/v1/Systems", headers={"If-None-Match": tag})
    other = bmc.get("/redfish/v1/Systems", headers={"If-None-Match": '"other"'})

    assert (again.status, again.body) == (304, b"")
    assert other.status == 200


def test_head_is_get_without_the_body(bmc: Bmc) -> None:
    whole = bmc.get("/redfish/v1/Systems")
    head = bmc.ask("HEAD", "/redfish/v1/Systems")

    assert (head.status, head.body) == (200, b"")
    assert head.headers["Content-Length"] == str(len(whole.body))


@pytest.mark.parametrize("method, path, allow", [
    ("DELETE", "/redfish/v1/Systems", "GET, HEAD"),
    ("PATCH", "/redfish/v1/", "GET, HEAD"),
    ("GET", EXPORT, "POST"),
    ("PUT", SESSIONS, "GET, HEAD, POST"),
])
def test_a_method_that_a_resource_has_not_is_answered_405(
    bmc: Bmc, method: str, path: str, allow: str
) -> None:
    answer = bmc.ask(method, path)

    assert (answer.status, answer.headers["Allow"]) == (405, allow)
    assert answer.json()["error"]["code"] == "Base.1.12.OperationNotAllowed"


def test_another_odata_version_and_queries_are_refused(bmc: Bmc) -> None:
    assert bmc.get("/redfish/v1/", headers={"OData-Version": "3.0"}).status == 412
    assert bmc.get("/redfish/v1/Systems?$filter=x").status == 501
    assert bmc.get("/redfish/v1/Systems?x=1").status == 200


def test_a_slash_at_the_end_makes_no_difference(bmc: Bmc) -> None:
    assert bmc.get("/redfish/v1/Systems/").json() == bmc.get("/redfish/v1/Systems").json()


# --- sessions ---------------------------------------------------------------------------------


@pytest.mark.parametrize("path", [SESSIONS, SESSIONS + "/"])
def test_a_session_is_opened_used_listed_and_closed(bmc: Bmc, path: str) -> None:
    body = {"UserName": bmc.user, "Password": bmc.password}
    opened = bmc.post(path, body, anonymous=True)
    assert opened.status == 201
    token, location = opened.headers["X-Auth-Token"], opened.headers["Location"]
    holder: dict[str, Any] = {"headers": {"X-Auth-Token": token}, "anonymous": True}

    assert opened.json()["@odata.id"] == location
    assert bmc.password not in opened.body.decode()
    assert bmc.get("/redfish/v1/Systems", **holder).status == 200
    assert bmc.get(bmc.archive["path"], **holder).status == 200
    assert {"@odata.id": location} in bmc.get(SESSIONS, **holder).json()["Members"]
    assert bmc.get(location, **holder).json()["UserName"] == bmc.user
    assert bmc.ask("DELETE", location, **holder).status == 204
    assert bmc.get("/redfish/v1/Systems", **holder).status == 401
    assert bmc.get(location).status == 404


@pytest.mark.parametrize("body, status, code", [
    ("{", 400, "Base.1.12.MalformedJSON"),
    ("", 400, "Base.1.12.MalformedJSON"),
    ("[" * 100000, 400, "Base.1.12.MalformedJSON"),
    ("[]", 400, "Base.1.12.UnrecognizedRequestBody"),
    ({"UserName": "admin"}, 400, "Base.1.12.PropertyMissing"),
    ({"UserName": "admin", "Password": 1}, 400, "Base.1.12.PropertyValueTypeError"),
    ({"UserName": "admin", "Password": "x", "More": 1}, 400, "Base.1.12.PropertyUnknown"),
    ({"UserName": "admin", "Password": "x"}, 401, "TavrinMessages.1.0.AuthenticationRequired"),
    ({"UserName": "other", "Password": "x"}, 401, "TavrinMessages.1.0.AuthenticationRequired"),
])
def test_a_session_that_cannot_be_opened(bmc: Bmc, body: Any, status: int, code: str) -> None:
    answer = bmc.post(SESSIONS, body, anonymous=True)

    assert (answer.status, answer.json()["error"]["code"]) == (status, code)
    assert "X-Auth-Token" not in answer.headers


def test_a_long_password_with_everything_in_it(start: Starter) -> None:
    password = 'a"\\\n\té:' * 125
    bmc = start({"user": "müller", "password": password})

    assert bmc.get("/redfish/v1/Systems").status == 200
    assert bmc.post(SESSIONS, {"UserName": "müller", "Password": password}, anonymous=True).status == 201


# --- versions ---------------------------------------------------------------------------------


@pytest.mark.parametrize("version, tasks, other", [
    ("1.5.9", "/redfish/v1/Tasks/Tasks/", TASKS),
    ("1.6.0", TASKS, "/redfish/v1/Tasks/Tasks/"),
    ("1.10.0", TASKS, "/redfish/v1/Tasks/Tasks/"),
    ("1.6", TASKS, "/redfish/v1/Tasks/Tasks/"),
])
def test_the_version_decides_where_tasks_are(start: Starter, version: str, tasks: str, other: str) -> None:
    bmc = start({"redfish": {"version": version}})

    assert bmc.get(ROOT).json()["RedfishVersion"] == version
    assert bmc.get(tasks).status == 200
    assert bmc.get(other).status == 404
    for prefix in (tasks, other):
        unknown = bmc.get(prefix + "8A6CA3D3EC")
        assert unknown.status == 404
        assert NO_USER not in unknown.body.decode()
        assert unknown.json()["error"]["@Message.ExtendedInfo"]
    id_ = bmc.post(EXPORT, FULL_EXPORT).json()["Id"]
    assert bmc.get(tasks + id_).status == 200
    assert bmc.get(other + id_).status == 404
    assert all(document["@odata.id"] for document in walk(bmc).values())


def test_the_version_can_be_missing(start: Starter) -> None:
    bmc = start("redfish: {version: null}")

    assert "RedfishVersion" not in bmc.get(ROOT).json()


# --- record and recovery ----------------------------------------------------------------------


def test_requests_are_recorded_as_they_were_spelled(start: Starter) -> None:
    bmc = start()
    bmc.post("/redfish/v1/Systems?x=%20y", "körper".encode(), headers={"X-oDD-name": "Value"})

    (entry,) = bmc.requests()
    assert list(entry) == ["service", "method", "path", "query", "headers", "body"]
    assert entry["service"] == "redfish"
    assert (entry["method"], entry["path"], entry["query"]) == ("POST", "/redfish/v1/Systems", "x=%20y")
    assert entry["headers"]["X-oDD-name"] == "Value"
    assert entry["headers"]["Authorization"].startswith("Basic ")
    assert entry["body"] == "körper"


def test_bytes_that_are_no_text_are_recorded_all_the_same(start: Starter) -> None:
    bmc = start()
    bmc.post("/redfish/v1/Systems", b"\xff\x00")

    assert bmc.requests()[0]["body"].encode("utf-8", "surrogateescape") == b"\xff\x00"


def test_the_record_is_the_owners_alone(bmc: Bmc) -> None:
    import os
    import stat

    assert stat.S_IMODE(os.stat(bmc.ready["requests"]).st_mode) == 0o600


def test_one_connection_serves_many_requests(bmc: Bmc) -> None:
    connection = bmc.connect()
    for _ in range(50):
        connection.request("GET", ROOT)
        answer = connection.getresponse()
        assert answer.status == 200 and json.loads(answer.read())
    connection.close()


def test_a_too_large_request_is_refused_and_the_service_lives_on(bmc: Bmc) -> None:
    assert bmc.post(EXPORT, b" " * (17 * 1024 * 1024)).status == 413
    assert bmc.get(ROOT).status == 200


def test_rubbish_on_the_port_does_no_harm(bmc: Bmc) -> None:
    for rubbish in (b"GET / HTTP/1.1\r\n\r\n", b"\x16\x03\x01\x00\x05rubbish", b"\0" * 1000):
        with socket.create_connection((bmc.address, bmc.port), timeout=10) as raw:
            raw.sendall(rubbish)
            raw.shutdown(socket.SHUT_WR)
            try:
                while raw.recv(4096):
                    pass
            except ConnectionError:
                pass
    assert bmc.get(ROOT).status == 200
