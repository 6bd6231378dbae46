# SPDX-License-Identifier: Apache-2.0
"""Scripted answers, one by one, and scenarios that are wrong."""

from __future__ import annotations

import http.client
import re
import socket
import ssl
import subprocess
import sys
import time
from pathlib import Path
from typing import Any

import pytest

from conftest import (
    EMULATOR, EXPORT, FULL_EXPORT, NO_USER, PROGRAM, ROOT, SESSIONS, TASKS, Bmc, Starter, outcome,
)

sys.path.insert(0, str(EMULATOR))
from bmc.http.script import MEMBERS  # noqa: E402
from bmc.redfish.settings import WISHES, read_redfish  # noqa: E402
from bmc.scenario import ScenarioError, load  # noqa: E402

DOCUMENT = EMULATOR.parent / "docs" / "emulator.md"
GET_ROOT = "GET /redfish/v1/"


def statuses(bmc: Bmc, count: int, path: str = ROOT) -> list[int]:
    return [bmc.get(path).status for _ in range(count)]


def test_answers_are_used_up_in_order_then_the_service_answers(start: Starter) -> None:
    bmc = start.answers({GET_ROOT: [{"status": 503}, {"status": 500}, {}, {"status": 404}]})

    assert statuses(bmc, 6) == [503, 500, 200, 404, 200, 200]


def test_the_last_answer_repeats_when_told(start: Starter) -> None:
    bmc = start.answers({GET_ROOT: [{"status": 503}, {"status": 500, "repeat": True}]})

    assert statuses(bmc, 4) == [503, 500, 500, 500]


def test_one_answer_needs_no_list(start: Starter) -> None:
    assert statuses(start.answers({GET_ROOT: {"status": 418}}), 2) == [418, 200]


def test_another_method_or_path_is_not_meant(start: Starter) -> None:
    bmc = start.answers({GET_ROOT: [{"status": 503}]})

    assert bmc.ask("HEAD", ROOT).status == 200
    assert bmc.get("/redfish/v1").status == 200
    assert bmc.get(ROOT).status == 503


@pytest.mark.parametrize("key", ["POST *ExportFFDCData", "POST .../*ExportFFDCData", "* *Export*", "POST " + EXPORT])
def test_patterns_and_any_method(start: Starter, key: str) -> None:
    bmc = start.answers({key: [{"status": 500}]})

    assert [bmc.post(EXPORT, FULL_EXPORT).status for _ in range(2)] == [500, 202]


def test_an_exact_path_goes_before_a_pattern_and_a_used_up_list_gives_way(start: Starter) -> None:
    bmc = start.answers({
        "* /*": [{"status": 500, "repeat": True}],
        GET_ROOT: [{"status": 503}],
    })

    assert statuses(bmc, 3) == [503, 500, 500]


def test_a_bare_error_status_brings_an_error_object(start: Starter) -> None:
    bmc = start.answers({GET_ROOT: [{"status": 503}, {"status": 401}, {"status": 418}, {"status": 200}]})

    starting, refused, teapot, empty = (bmc.get(ROOT) for _ in range(4))
    assert starting.json()["error"]["code"] == "Base.1.12.ServiceTemporarilyUnavailable"
    assert starting.headers["Retry-After"] == "5"
    assert NO_USER in refused.body.decode()
    assert teapot.json()["error"]["code"] == "Base.1.12.GeneralError"
    assert (empty.status, empty.body) == (200, b"")


def test_text_json_and_files_are_bodies(start: Starter, tmp_path: Path) -> None:
    (tmp_path / "page.html").write_bytes(b"<p>\xff</p>")
    bmc = start.answers({GET_ROOT: [
        {"body": "plain \x1b[2J"},
        {"json": {"RedfishVersion": "1.5.0"}, "status": 203},
        {"file": "page.html", "headers": {"Content-Type": "text/html"}},
    ]})

    text, document, page = (bmc.get(ROOT) for _ in range(3))
    assert (text.status, text.body) == (200, b"plain \x1b[2J")
    assert (document.status, document.json()) == (203, {"RedfishVersion": "1.5.0"})
    assert (page.body, page.headers["Content-Type"]) == (b"<p>\xff</p>", "text/html")


def test_generated_bodies_have_their_exact_length(start: Starter) -> None:
    bmc = start.answers({GET_ROOT: [
        {"fill": 300001},
        {"nested": 100000},
        {"nested": {"depth": 3, "closed": True}},
        {"body_repeat": {"text": "abc", "count": 100001}},
        {"body_repeat": {"before": "[", "text": "1,", "count": 3, "after": "0]"}},
        {"body_repeat": {"text": "", "count": 5}},
    ]})

    bodies = [bmc.get(ROOT).body for _ in range(6)]
    assert bodies == [b"x" * 300001, b"[" * 100000, b"[[[]]]", b"abc" * 100001, b"[1,1,1,0]", b""]


def test_huge_bodies_are_not_built_in_memory(start: Starter) -> None:
    bmc = start.answers({GET_ROOT: [{"fill": 200 << 20}]})
    connection = bmc.connect()
    connection.request("GET", ROOT)
    answer, size = connection.getresponse(), 0
    while data := answer.read(1 << 20):
        size += len(data)
    connection.close()

    assert size == 200 << 20
    status = Path(f"/proc/{bmc.process.pid}/status").read_text()
    assert int(status.split("VmHWM:")[1].split()[0]) < 150 * 1024  # KiB


def test_headers_are_set_replaced_and_removed(start: Starter) -> None:
    bmc = start.answers({GET_ROOT: [{"headers": {
        "x-New": "a b", "odata-version": "9", "ETag": None, "Date": None, "Server": None,
    }}]})

    answer = bmc.get(ROOT)
    assert answer.json()["RedfishVersion"] == "1.15.0"
    assert answer.headers["x-New"] == "a b"
    assert answer.headers["odata-version"] == "9" and "OData-Version" not in answer.headers
    assert not {"ETag", "Date", "Server"} & set(answer.headers)


def test_without_a_length_the_body_goes_in_chunks(start: Starter) -> None:
    answer = start.answers({GET_ROOT: [{"body": "abc", "headers": {"Content-Length": None}}]}).get(ROOT)

    assert answer.headers["Transfer-Encoding"] == "chunked" and answer.body == b"abc"


def test_a_length_that_lies_ends_with_the_connection(start: Starter) -> None:
    bmc = start.answers({GET_ROOT: [{"body": "abc", "headers": {"Content-Length": "10"}}]})

    with pytest.raises(http.client.IncompleteRead):
        bmc.get(ROOT)


def test_a_session_can_come_without_its_token(start: Starter) -> None:
    bmc = start.answers({f"POST {SESSIONS}": [{"headers": {"X-Auth-Token": None}}]})
    body = {"UserName": bmc.user, "Password": bmc.password}

    first, second = (bmc.post(SESSIONS, body, anonymous=True) for _ in range(2))
    assert (first.status, "X-Auth-Token" in first.headers) == (201, False)
    assert "X-Auth-Token" in second.headers


def test_a_delay_comes_before_the_answer(start: Starter) -> None:
    bmc = start.answers({GET_ROOT: [{"delay": 0.4}]})
    began = time.monotonic()
    assert bmc.get(ROOT).status == 200
    assert 0.4 <= time.monotonic() - began < 5


def test_a_request_that_hangs_hangs_alone(start: Starter) -> None:
    bmc = start.answers({GET_ROOT: [{"hang": True}]})

    with pytest.raises(socket.timeout):
        bmc.get(ROOT, timeout=0.5)
    assert bmc.get(ROOT).status == 200
    assert len(bmc.requests()) == 2


def test_an_answer_can_stop_in_the_middle(start: Starter) -> None:
    bmc = start.answers({GET_ROOT: [{"fill": 100000, "hang_after": 70000}]})
    connection = bmc.connect(timeout=1)
    connection.request("GET", ROOT)
    answer = connection.getresponse()

    assert answer.headers["Content-Length"] == "100000"
    assert answer.read(70000) == b"x" * 70000
    with pytest.raises(socket.timeout):
        answer.read(1)
    connection.close()


@pytest.mark.parametrize("count", [0, 1, 65537, 3 << 20])
def test_a_cut_answer_brings_exactly_its_bytes(start: Starter, count: int) -> None:
    bmc = start.answers({"GET *": [{"cut_after": count, "repeat": True}]}, archive={"size": 4 << 20})
    connection = bmc.connect()
    connection.request("GET", bmc.archive["path"], headers=bmc.basic())
    answer = connection.getresponse()
    got = b""
    with pytest.raises((http.client.IncompleteRead, ssl.SSLError, ConnectionError)):
        while len(got) <= count:
            piece = answer.read(min(65536, count - len(got) + 1))
            if not piece:
                raise http.client.IncompleteRead(b"")
            got += piece
    connection.close()

    assert answer.headers["Content-Length"] == str(4 << 20)
    assert got == Path(bmc.archive["file"]).read_bytes()[:count]


def test_a_rate_slows_the_body_down(start: Starter) -> None:
    bmc = start.answers({GET_ROOT: [{"fill": 50000, "rate": 100000}]})
    began = time.monotonic()
    assert len(bmc.get(ROOT).body) == 50000
    assert 0.35 <= time.monotonic() - began < 5


def test_redirects_and_their_loops(start: Starter) -> None:
    bmc = start.answers({GET_ROOT: [
        {"redirect": "/redfish/v1/"}, {"redirect": "https://192.0.2.1/", "status": 308},
    ]})

    first, second = bmc.get(ROOT), bmc.get(ROOT)
    assert (first.status, first.headers["Location"], first.body) == (302, "/redfish/v1/", b"")
    assert (second.status, second.headers["Location"]) == (308, "https://192.0.2.1/")


def test_a_poll_can_be_given_a_state(start: Starter) -> None:
    bmc = start.answers({f"GET {TASKS}*": [
        {"task_state": "Suspended"}, {"task_state": 7}, {"task_state": None}, {"task_state": "Completed"},
    ]})
    path = TASKS + bmc.post(EXPORT, FULL_EXPORT).json()["Id"]

    tasks = [bmc.get(path).json() for _ in range(5)]
    assert [t.get("TaskState", "missing") for t in tasks] == [
        "Suspended", 7, "missing", "Completed", "Completed"  # the fifth poll is the walk's own end
    ]
    assert tasks[3]["Oem"]["Tavrin"]["FFDCForDownloading"]["Path"] == bmc.archive["path"]


@pytest.mark.parametrize("id_, path", [
    ("a b", "a%20b"), ("a/b", "a/b"), ("../x", "../x"), ("ü", "%C3%BC"), (17, "17"),
])
def test_an_id_can_be_odd_and_its_task_is_found(start: Starter, id_: Any, path: str) -> None:
    bmc = start.answers({f"POST {EXPORT}": [{"id": id_}]})

    assert bmc.post(EXPORT, FULL_EXPORT).json()["Id"] == id_
    assert bmc.get(TASKS + path).json()["Id"] == id_


def test_an_id_can_be_missing(start: Starter) -> None:
    bmc = start.answers({f"POST {EXPORT}": [{"no_id": True}]})

    answer = bmc.post(EXPORT, FULL_EXPORT)
    assert answer.status == 202 and "Id" not in answer.json()
    assert "Id" in bmc.post(EXPORT, FULL_EXPORT).json()


@pytest.mark.parametrize("path, asked", [
    ("/elsewhere/x.tgz", "/elsewhere/x.tgz"),
    ("/ffdc/a b%20c 100%.tgz", "/ffdc/a%20b%20c%20100%25.tgz"),
    ("/a/../../b.tgz", "/b.tgz"),
    ("no-slash.tgz", "/no-slash.tgz"),
])
def test_the_archive_is_where_the_answer_says(start: Starter, path: str, asked: str) -> None:
    bmc = start.answers({f"POST {EXPORT}": [{"path": path}]}, task_states=["Completed"])
    task = bmc.get(TASKS + bmc.post(EXPORT, FULL_EXPORT).json()["Id"]).json()

    assert task["Oem"]["Tavrin"]["FFDCForDownloading"]["Path"] == path
    assert len(bmc.get(asked).body) == bmc.archive["size"]


def test_a_finished_task_can_hide_its_archive(start: Starter) -> None:
    bmc = start.answers({f"GET {TASKS}*": [{"path": None}]}, task_states=["Completed"])
    task = bmc.get(TASKS + bmc.post(EXPORT, FULL_EXPORT).json()["Id"]).json()

    assert task["TaskState"] == "Completed" and "Oem" not in task


@pytest.mark.parametrize("file", sorted((EMULATOR / "scenarios").glob("*.yaml")), ids=lambda f: f.stem)
def test_the_scenarios_that_come_along_can_be_used(start: Starter, file: Path) -> None:
    files = ["--sftp-port", "0"] if "\nsftp:" in file.read_text() else []  # 115 is root's alone
    bmc = start(file, *files)

    assert bmc.port > 0
    assert file.read_text().splitlines()[2].startswith("# ")


# --- scenarios that are wrong -----------------------------------------------------------------


def complaint(arguments: list[str]) -> str:
    """The one line that a bad start ends with."""
    done = outcome(*arguments)
    assert (done.returncode, done.stdout) == (2, "")
    lines = done.stderr.splitlines()
    assert len(lines) == 1, done.stderr
    return lines[0]


def refusal(file: Path) -> str:
    """What the reader of scenarios complains about."""
    with pytest.raises(ScenarioError) as caught:
        load(file, {"redfish": read_redfish})
    return str(caught.value)


def test_a_wrong_scenario_ends_the_start_with_one_line(start: Starter) -> None:
    file = start.scenario_file("user: admin\npassword: 123")

    assert complaint(["--scenario", str(file)]) == (
        f"emulated-bmc: {file}:2: password: must be text, not the int 123 (put it in quotes)"
    )


def test_an_archive_size_that_cannot_be_met_ends_the_start_with_one_line(start: Starter) -> None:
    file = start.scenario_file({"redfish": {"archive": {"size": 10}}})

    expected = f"emulated-bmc: {file}: redfish.archive: no archive fits into 10 bytes; the smallest has 1"
    assert complaint(["--scenario", str(file)]).startswith(expected)


@pytest.mark.parametrize("text, expected", [
    ("usr: admin", ":1: usr: unknown member; allowed: user, password, role, redfish"),
    ("user: admin\npassword: 123", ":2: password: must be text, not the int 123 (put it in quotes)"),
    ("role: Boss", ":1: role: unknown value 'Boss'; allowed: Administrator, Operator, ReadOnly"),
    ("- a", ":1: must be a mapping, not a list"),
    ("redfish: [", ":1: not YAML: "),
    ("redfish: " + 100000 * "[", ": not YAML: more than 100 levels"),
    ("user: a\nuser: b", ":2: user: given twice"),
    ("user: \"\x01\"", ": not YAML: "),
    ("redfish:\n  version: 1.5", ":2: redfish.version: must be text, not the float 1.5 (put it in quotes)"),
    ("redfish:\n  archive: {size: -1}", ":2: redfish.archive.size: must be a whole number from 0 to 4294967295, not -1"),
    ("redfish:\n  archive: {name: ../x}", ":2: redfish.archive.name: must be one plain file name; "),
    ("redfish:\n  task_states: []", ":2: redfish.task_states: must name at least one state"),
    ("redfish:\n  task_states: [New, [x]]", ":2: redfish.task_states[1]: must be text, a number, true, false or null"),
])
def test_a_wrong_scenario_is_refused_in_one_line(start: Starter, text: str, expected: str) -> None:
    file = start.scenario_file(text)

    assert refusal(file).startswith(f"{file}{expected}")


@pytest.mark.parametrize("answer, expected", [
    ("{statsu: 503}", "[0].statsu: unknown member; allowed: status, body, json, file, body_repeat, nested, "
                      "fill, headers, redirect, delay, hang, hang_after, cut_after, rate, repeat, "
                      "task_state, id, path, no_id"),
    ("null", "[0]: must be a mapping; {} is the service's own answer"),
    ("{status: 99}", "[0].status: must be a whole number from 200 to 599, not 99"),
    ("{status: true}", "[0].status: must be a whole number from 200 to 599, not True"),
    ("{body: x, fill: 3}", "[0].fill: there is a body already: body"),
    ("{body: 3}", "[0].body: must be text, not the int 3 (put it in quotes)"),
    ("{delay: soon}", "[0].delay: must be a number from 0 to 86400, not text"),
    ("{hang: yes, status: 200}", "[0].status: hang never answers, so nothing else is sent"),
    ("{status: 200, id: x}", "[0].id: changes the service's own answer, which status replaces"),
    ("{cut_after: 1, hang_after: 1}", "[0].hang_after: cut_after ends the answer already"),
    ("{headers: {a b: c}}", '[0].headers."a b": is no header name'),
    ('{headers: {A: "b\\nc"}}', "[0].headers.A: a header's value is one line without control characters"),
    ("{file: nowhere}", "[0].file: no such file: "),
    ("{body_repeat: {text: x}}", "[0].body_repeat: count is missing; needed: text, count"),
    ("{nested: -3}", "[0].nested: must be a whole number from 0 to "),
    ("{repeat: true}, {}", "[0].repeat: only the last answer of a list can repeat"),
    ("{id: [1]}", "[0].id: must be text, a number or null"),
    ("{path: 3}", "[0].path: must be text, not the int 3 (put it in quotes)"),
    ("{no_id: 3}", "[0].no_id: must be true or false, not the int 3"),
    ("{task_state: {}}", "[0].task_state: must be text, a number, true, false or null"),
])
def test_a_wrong_answer_is_refused_with_its_place(start: Starter, answer: str, expected: str) -> None:
    file = start.scenario_file(f'redfish:\n  answers:\n    "GET /x":\n      [{answer}]\n')

    assert refusal(file).startswith(f'{file}:4: redfish.answers."GET /x"{expected}')


@pytest.mark.parametrize("key", ["FETCH /x", "GET x", "/x", "GET"])
def test_a_wrong_resource_is_refused(start: Starter, key: str) -> None:
    file = start.scenario_file({"redfish": {"answers": {key: [{}]}}})

    assert 'must read "METHOD /path"; methods: GET, HEAD, POST' in refusal(file)


def test_a_scenario_that_is_not_there_is_refused(tmp_path: Path) -> None:
    file = tmp_path / "none.yaml"

    assert refusal(file) == f"{file}: cannot be read: No such file or directory"


def test_an_empty_scenario_is_the_default_one(start: Starter) -> None:
    assert start("# nothing\n").get(ROOT).json()["RedfishVersion"] == "1.15.0"


# --- the handbook -----------------------------------------------------------------------------


def test_every_scenario_that_comes_along_is_in_the_handbook() -> None:
    rows = re.findall(r"^\| (`[^|]*`) \|", DOCUMENT.read_text(), re.MULTILINE)
    named = {name for row in rows for name in re.findall(r"`([^`]+)`", row)}

    assert {file.stem for file in (EMULATOR / "scenarios").glob("*.yaml")} <= named


def test_every_member_of_a_section_is_in_the_handbook(start: Starter) -> None:
    text = DOCUMENT.read_text()
    for scenario, prefix in (({"x": 1}, ""), ({"redfish": {"x": 1}}, "redfish."),
                             ({"redfish": {"download": {"x": 1}}}, "redfish.download."),
                             ({"redfish": {"archive": {"x": 1}}}, "redfish.archive."),
                             ({"redfish": {"diagnostics": {"x": 1}}}, "diagnostics."),
                             ({"redfish": {"diagnostics": {"data": {"x": 1}}}}, "diagnostics."),
                             ({"redfish": {"diagnostics": {"services": [{"x": 1}]}}}, "diagnostics.")):
        allowed = complaint(["--scenario", str(start.scenario_file(scenario))]).partition("allowed: ")[2].split(", ")
        for name in allowed:
            assert f"`{prefix}{name}`" in text or f"{prefix}{name}." in text or f"`{name}`" in text, prefix + name


def test_the_options_in_the_handbook_are_those_of_the_program() -> None:
    shown = subprocess.run([str(PROGRAM), "--help"], capture_output=True, text=True, timeout=20).stdout
    named = re.findall(r"^\| `(--[\w-]+)", DOCUMENT.read_text(), re.MULTILINE)
    more = re.findall(r"`(--[\w-]+) N`", DOCUMENT.read_text())

    assert set(re.findall(r"--[a-z][\w-]+", shown)) - {"--help"} <= {*named, *more}


def test_every_scenario_in_the_handbook_can_be_used(start: Starter) -> None:
    blocks = re.findall(r"```yaml\n(.*?)```", DOCUMENT.read_text(), re.DOTALL)
    redfish = [block for block in blocks if "redfish:" in block]
    assert len(redfish) >= 2
    for block in redfish:
        load(start.scenario_file(block), {"redfish": read_redfish})


def test_every_answer_in_the_handbook_can_be_used_and_none_is_left_out(start: Starter, tmp_path: Path) -> None:
    (tmp_path / "page.html").write_text("x")
    own = DOCUMENT.read_text().partition("\n## The CIM server\n")[0]
    rows = re.findall(r"^\| `(\w+)` \| (`\{.*?\}`) \|", own, re.MULTILINE)
    for name, examples in rows:
        for example in examples.strip("`").split("`, `"):
            file = start.scenario_file(f'redfish: {{answers: {{"GET /": [{example}]}}}}')
            load(file, {"redfish": read_redfish})
            assert name in example
    assert {name for name, _ in rows} >= {*MEMBERS, *WISHES}
