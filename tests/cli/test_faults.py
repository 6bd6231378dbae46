# SPDX-License-Identifier: Apache-2.0
"""Plays every row of docs/faults.md about Redfish with the real tool.

The table says what comes out; the scenarios here say only how the fault is made.
"""

import contextlib
import dataclasses
import pathlib
import re
import ssl
from typing import Callable

import pytest

import odd_servers
import tool
from faults_play import check_reason, check_texts, closed_port, mute_server, special_folder, unknown_host
from faults_table import rows
from tool import EXPORT, SERVICE_ROOT, SESSIONS, TASK

HEADING = "Over Redfish"
STEP_OF = {
    "Connect": "connect",
    "Apply": "export",
    "IsFFDCLogExist": "gather",
    "DownloadFFDC": "download",
}
CODE_OF = {"false": 1, "true": 0, "throws": -1}

ROWS = rows(HEADING)


def answers(**entries):
    """A scenario whose answers are these, for ever."""
    names = {"root": SERVICE_ROOT, "export": EXPORT, "task": TASK, "sessions": SESSIONS, "all": "* *"}
    return {"redfish": {"answers": {names[k]: [{**v, "repeat": True}] for k, v in entries.items()}}}


HTML = {"status": 200, "body": "<html><body>Welcome</body></html>", "headers": {"Content-Type": "text/html"}}
TRUNCATED = {"status": 200, "body": '{"Id": "1", "RedfishVersion": "1.15.0", "TaskState": "Runn'}
NESTED = {"status": 200, "nested": 100000}
HUGE = {
    "status": 200,
    "body_repeat": {"before": '{"Id": "1", "Pad": "', "text": "0123456789", "count": 10000000, "after": '"}'},
}
EMPTY = {"status": 200, "body": ""}


def task_states(*states):
    return {"redfish": {"task_states": list(states)}}


def archive_path(path):
    return answers(export={"path": path})


@dataclasses.dataclass
class Trouble:
    """A fault: a scenario of the emulated BMC, or a server of its own, and how the tool is run."""

    scenario: dict = None
    arguments: list = dataclasses.field(default_factory=list)
    environment: dict = dataclasses.field(default_factory=dict)
    bmc_arguments: list = dataclasses.field(default_factory=list)
    server: Callable = None
    folder: str = None
    seconds: float = 20.0


def odd(respond=None, prepare=None, trusted=None):
    """A server of odd_servers; `trusted`: the tool is given another CA file than its own."""
    @contextlib.contextmanager
    def start():
        with odd_servers.odd_server(respond, prepare) as server, odd_servers.odd_server() as other:
            yield "127.0.0.1", server.port, {"VARNEX_CA_FILE": str(other.certificate)} if trusted else {}
    return start


@contextlib.contextmanager
def behind_a_plain_proxy_named_https():
    with odd_servers.proxy_that_says(b"HTTP/1.1 400 No\r\n\r\n") as port:
        yield "127.0.0.1", tool.free_port(), {"https_proxy": f"https://127.0.0.1:{port}"}


@contextlib.contextmanager
def behind_an_unknown_https_proxy():
    with odd_servers.odd_server() as server:
        yield "127.0.0.1", tool.free_port(), {"https_proxy": f"https://127.0.0.1:{server.port}"}


def behind_a_proxy(answer):
    """A BMC that is not there, behind a proxy that answers so; `closed_port` for one that is not there."""
    @contextlib.contextmanager
    def start():
        if answer is closed_port:
            yield "127.0.0.1", tool.free_port(), {"https_proxy": f"http://127.0.0.1:{tool.free_port()}"}
            return
        with odd_servers.proxy_that_says(answer) as port:
            yield "127.0.0.1", tool.free_port(), {"https_proxy": f"http://127.0.0.1:{port}"}
    return start


LONG_PASSWORD = ('quote " apostrophe \' backslash \\ newline \n tab \t percent % Grüße 密码 ' * 20)[:1000]

SCENARIOS = {
    "Refused port": Trouble(server=closed_port),
    "Unknown host": Trouble(server=unknown_host),
    "Plain HTTP server on the port": Trouble(bmc_arguments=["--redfish-plain"]),
    "Server that accepts connections and never begins TLS": Trouble(
        server=mute_server, environment={"VARNEX_REST_ACTION_TIMEOUT": "2"}, seconds=6),
    "TLS server that never answers (bounded by REST_ACTION_TIMEOUT)": Trouble(
        answers(all={"hang": True}), environment={"VARNEX_REST_ACTION_TIMEOUT": "2"}, seconds=6),
    "401": Trouble(answers(all={"status": 401})),
    "403": Trouble(answers(all={"status": 403})),
    "404 for everything": Trouble(answers(all={"status": 404})),
    "503 twice, then 200": Trouble(
        {"redfish": {"answers": {SERVICE_ROOT: [{"status": 503}, {"status": 503}, {}]}}}),
    "503 for ever (bounded by REDFISH_STARTUP_WAIT_TIME)": Trouble(
        answers(all={"status": 503}), environment={"VARNEX_REDFISH_STARTUP_WAIT_TIME": "1"}, seconds=10),
    "Redirect loop": Trouble(answers(root={"redirect": "/redfish/v1/"})),
    "Redirect on the same host": Trouble({"redfish": {"answers": {SERVICE_ROOT: [{"redirect": "/redfish/v1/"}]}}}),
    "Redirect to another host": Trouble(answers(root={"redirect": "https://other.example/redfish/v1/"})),
    "Redirect to plain HTTP": Trouble(answers(root={"redirect": "http://127.0.0.1/redfish/v1/"})),
    "Redirect to FTP": Trouble(answers(root={"redirect": "ftp://127.0.0.1/redfish/v1/"})),
    "Redirect to no address": Trouble(answers(root={"redirect": "https://[redfish/v1/"})),
    "Certificate of another CA": Trouble(server=odd(trusted=True)),
    "CA file missing": Trouble(arguments=["--ca-file", "/nonexistent/ca.pem"]),
    "TLS 1.1 and older alone": Trouble(server=odd(prepare=odd_servers.old_tls)),
    "Client certificate demanded, TLS 1.2": Trouble(
        server=odd(prepare=odd_servers.client_certificate(ssl.TLSVersion.TLSv1_2))),
    "Client certificate demanded, TLS 1.3": Trouble(
        server=odd(prepare=odd_servers.client_certificate(ssl.TLSVersion.TLSv1_3))),
    "Proxy that is not there": Trouble(server=behind_a_proxy(closed_port)),
    "Proxy that never answers (bounded by REST_ACTION_TIMEOUT)": Trouble(
        server=behind_a_proxy(None), environment={"VARNEX_REST_ACTION_TIMEOUT": "2"}, seconds=6),
    "Proxy that closes the connection": Trouble(server=behind_a_proxy(b"")),
    "Proxy that wants a login": Trouble(
        server=behind_a_proxy(b"HTTP/1.1 407 Login\r\nProxy-Authenticate: Basic realm=x\r\nContent-Length: 0\r\n\r\n")),
    "Proxy that refuses": Trouble(server=behind_a_proxy(b"HTTP/1.1 403 No\r\nContent-Length: 0\r\n\r\n")),
    "Proxy that does not reach the BMC": Trouble(
        server=behind_a_proxy(b"HTTP/1.1 503 Gone\r\nContent-Length: 0\r\n\r\n")),
    "Proxy named with https:// that speaks plain HTTP": Trouble(server=behind_a_plain_proxy_named_https),
    "Proxy with a certificate of its own making": Trouble(server=behind_an_unknown_https_proxy),
    "First header line of an answer begins with a blank": Trouble(
        server=odd(odd_servers.blank_before_the_first_header(lambda _, path: path.endswith("/Managers/1")))),
    "Headers without end": Trouble(server=odd(odd_servers.headers_without_end)),
    "Interim answers without end": Trouble(
        server=odd(lambda _, __: b"HTTP/1.1 100 Continue\r\nX: y\r\n\r\n" * 20000)),
    "Service root: 400 to anonymous requests": Trouble(
        {"redfish": {"answers": {SERVICE_ROOT: [{"status": 400}]}}}),
    "Service root: 500": Trouble(answers(root={"status": 500})),
    "Service root: 502": Trouble(answers(root={"status": 502})),
    "Service root: 504": Trouble(answers(root={"status": 504})),
    "Answer that begins and does not end (bounded by REST_ACTION_TIMEOUT)": Trouble(
        answers(root={"hang_after": 10}), environment={"VARNEX_REST_ACTION_TIMEOUT": "2"}, seconds=6),
    "Service root: empty body": Trouble(answers(root=EMPTY)),
    "Service root: HTML with status 200": Trouble(answers(root=HTML)),
    "Service root: truncated JSON": Trouble(answers(root=TRUNCATED)),
    "Service root: 100,000 nested brackets": Trouble(answers(root=NESTED)),
    "Service root: 100 MB of JSON": Trouble(answers(root=HUGE)),
    "Export refused": Trouble(answers(export={"status": 400})),
    "Export: 404": Trouble(answers(export={"status": 404})),
    "Export: 405": Trouble(answers(export={"status": 405})),
    "Export: 501": Trouble(answers(export={"status": 501})),
    "Export: 503 for ever (bounded by REDFISH_STARTUP_WAIT_TIME)": Trouble(
        answers(export={"status": 503}), environment={"VARNEX_REDFISH_STARTUP_WAIT_TIME": "1"}, seconds=15),
    "Export answer: empty body": Trouble(answers(export=EMPTY)),
    "Export answer: HTML with status 200": Trouble(answers(export=HTML)),
    "Export answer: truncated JSON": Trouble(answers(export=TRUNCATED)),
    "Export answer: 100,000 nested brackets": Trouble(answers(export=NESTED)),
    "Export answer: 100 MB of JSON": Trouble(answers(export=HUGE), seconds=60),
    "Export answer without an Id": Trouble(answers(export={"no_id": True})),
    "Id with slashes": Trouble(answers(export={"id": "../../Managers/1"})),
    "Id with blanks": Trouble(answers(export={"id": "task 1"})),
    "Id that is `..`": Trouble(answers(export={"id": ".."})),
    "Task answer: empty body": Trouble(answers(task=EMPTY)),
    "Task answer: HTML with status 200": Trouble(answers(task=HTML)),
    "Task answer: truncated JSON": Trouble(answers(task=TRUNCATED)),
    "Task answer: 100,000 nested brackets": Trouble(answers(task=NESTED)),
    "Task answer: 100 MB of JSON": Trouble(answers(task=HUGE), seconds=60),
    "Task answer: an error with status 200": Trouble(
        answers(task={"status": 200, "json": {"error": {"message": "no"}, "TaskState": "Running"}})),
    "TaskState missing": Trouble(task_states("Running", None)),
    "TaskState that is a number": Trouble(task_states("Running", 4)),
    "TaskState empty": Trouble(task_states("Running", "")),
    "TaskState unknown": Trouble(task_states("Running", "Dreaming")),
    "Task ends with an exception": Trouble(task_states("Running", "Exception")),
    "Task killed": Trouble(task_states("Running", "Killed")),
    "Task forgotten (404 when asked)": Trouble(answers(task={"status": 404})),
    "Connection lost while the task runs": Trouble(
        {"redfish": {"answers": {TASK: [{}, {"cut_after": 0, "repeat": True}]}}}),
    "Task still running after the last try": Trouble(task_states("Running"), ["--tries", "3"]),
    "Task completed without an archive path": Trouble(answers(task={"path": None, "task_state": "Completed"})),
    "Archive path with `../`": Trouble(archive_path("/download/../../../etc/passwd")),
    "Archive path with a blank and a `%`": Trouble(archive_path("/download/service data 100%.tar.gz")),
    "Session for the download refused": Trouble(answers(sessions={"status": 401})),
    "Session without a token": Trouble(answers(sessions={"headers": {"X-Auth-Token": None}})),
    "Header names in lower case": Trouble(server=odd(odd_servers.lower_case_names)),
    "Archive cut after half": Trouble(
        {"redfish": {"archive": {"size": 200000}, "answers": {"GET /download/*": [{"cut_after": 100000, "repeat": True}]}}}),
    "Archive of 0 bytes": Trouble({"redfish": {"archive": {"size": 0}}}),
    "HTML page with status 200 in place of the archive": Trouble({"redfish": {"answers": {"GET /download/*": [
        {"status": 200, "body": "<!DOCTYPE html><title>Log in</title>", "repeat": True}]}}}),
    "Download answered 404": Trouble({"redfish": {"answers": {"GET /download/*": [{"status": 404, "repeat": True}]}}}),
    "Disk full": Trouble(
        {"redfish": {"archive": {"size": 1048576}}}, ["--keep-free", "0"], folder="size=256k"),
    "Less free than --keep-free before the run": Trouble(folder="size=2m"),
    "Archive that would leave less free than --keep-free": Trouble(
        {"redfish": {"archive": {"size": 1500000}}}, ["--keep-free", "1m"], folder="size=2m"),
    "Archive larger than --max-size": Trouble(
        {"redfish": {"archive": {"size": 1048577}}}, ["--max-size", "1M"]),
    "Archive as large as --max-size": Trouble(
        {"redfish": {"archive": {"size": 1048576}}}, ["--max-size", "1M"]),
    "BMC that sends 50 bytes a second (bounded by --deadline)": Trouble(
        {"redfish": {"archive": {"size": 1048576}, "answers": {"GET /download/*": [{"rate": 50}]}}},
        ["--deadline", "8s"], seconds=16),
    "BMC that gathers for ever (bounded by --deadline)": Trouble(
        task_states("Running"), ["--tries", "1000000", "--deadline", "6"], seconds=14),
    "Export never answered (bounded by --deadline)": Trouble(
        answers(export={"hang": True}), ["--deadline", "6"], seconds=14),
    "Output folder not writable": Trouble(folder="ro"),
    "Password of 1,000 characters with quotes, newlines and UTF-8": Trouble({"password": LONG_PASSWORD}),
    "BMC body with terminal escapes": Trouble(
        answers(export={"status": 400, "json": {"error": {"message": "\x1b]0;owned\x07\x1b[2Jno"}}})),
}


def test_every_row_has_a_scenario_and_every_scenario_a_row():
    assert sorted(ROWS) == sorted(SCENARIOS)


@contextlib.contextmanager
def place_of(trouble):
    """Address, port, user, password and environment for the tool; the BMC, if it is one."""
    if trouble.server:
        with trouble.server() as (host, port, *environment):
            given = {**trouble.environment, **(environment[0] if environment else {})}
            yield host, port, "admin", "a secret for nobody", given, None
        return
    bmc = tool.Bmc(trouble.scenario, trouble.bmc_arguments)
    try:
        yield bmc.address, bmc.port, bmc.user, bmc.password, trouble.environment, bmc
    finally:
        bmc.stop()


def check_library_code(row, steps):
    """Against the last step of the account that the tool gives as JSON."""
    if row.library == "none":
        assert not [step for step in steps if step["name"] in STEP_OF.values()]
        return
    if row.library == "constructor":
        assert steps[-1]["name"] == "start"
        return
    if row.library == "stopped":
        return
    operation, result = row.library.split(" ")
    found = [step for step in steps if step["name"] == STEP_OF[operation]]
    assert found, f"{operation} was not called"
    assert found[-1]["code"] == int(CODE_OF.get(result, result))
    later = list(STEP_OF.values())[list(STEP_OF.values()).index(STEP_OF[operation]) + 1 :]
    assert not [step for step in steps if step["name"] in later]


def can_go_on(code, account):
    """Whether there is a task whose archive may still come."""
    return account["task"] is not None and code not in (5, 9)


@pytest.mark.parametrize("what", sorted(SCENARIOS))
def test_fault(what, tmp_path):
    row, trouble = ROWS[what], SCENARIOS[what]
    output = tmp_path / "archives"
    output.mkdir()
    log = tmp_path / "log"
    prefix = special_folder(output, trouble.folder) if trouble.folder else []
    if prefix is None:
        pytest.skip("no file system of one's own here")
    with place_of(trouble) as (host, port, user, password, environment, bmc):
        ended = tool.run(
            ["collect", "--via", "redfish", host, "--port", str(port), "--user", user,
             "--password-file", "-", "--interval", "0", "--output", str(output), "--json",
             "--log-file", str(log), *trouble.arguments],
            password=password, environment=environment, prefix=prefix,
            seconds=trouble.seconds,
        )
        log_text = log.read_text(encoding="utf-8", errors="replace") if log.exists() else ""
        check_texts(ended, log_text, {password} | (bmc.tokens() if bmc else set()))
        export_was_asked = bool(bmc and bmc.requests("POST"))

    assert ended.code == row.code, ended.err
    account = ended.json
    assert account["exit_code"] == row.code
    check_library_code(row, account["steps"])
    assert "LEFT:" not in ended.err
    if trouble.folder == "ro":
        assert not export_was_asked, "nothing is to be gathered that cannot be stored"
    if row.code != 0:
        assert check_reason(row, (host, port), ended) == can_go_on(row.code, account)
        kept = [pathlib.Path(account["path"]).name] if row.code == 9 else []
        assert (tool.archives_in(output) if output.exists() else []) == kept
        return
    assert re.search(row.pattern(host, port), ended.err) or row.text == "Archive"
    path = pathlib.Path(account["path"])
    assert tool.archives_in(output) == [path.name]
    assert re.fullmatch(r"[A-Za-z0-9_+][A-Za-z0-9._+-]*", path.name)
    assert path.stat().st_size == account["size"] == bmc.ready["archive"]["size"]


def test_no_escape_of_a_bmc_reaches_output_or_log(start_bmc, tmp_path):
    scenario = SCENARIOS["BMC body with terminal escapes"].scenario
    bmc = start_bmc(scenario)
    log = tmp_path / "log"
    ended = tool.run(tool.collect(bmc, tmp_path / "out", "--log-file", str(log)), password=bmc.password)
    assert ended.code == 4
    for text in (ended.out, ended.err, log.read_text(encoding="utf-8")):
        assert "\x1b" not in text and "\x07" not in text
