# SPDX-License-Identifier: Apache-2.0
"""Plays every row of docs/faults.md about CIM with the real tool.

The table says what comes out; the scenarios here say only how the fault is made.
"""

import contextlib
import dataclasses
import re
import socket
import threading
from typing import Callable

import pytest

import cim_tool
import tool
from faults_play import check_reason, check_texts, closed_port, mute_server, unknown_host
from faults_table import rows

HEADING = "Over CIM"
ROWS = rows(HEADING)

SERVICE = "EnumerateInstances ZOR_FFDCService"
DATA = "EnumerateInstances ZOR_FFDCData"
EXPORT = "ExportData"
TWO_SECONDS = {"VARNEX_REST_ACTION_TIMEOUT": "2"}

# Of 1,000 bytes, with everything that quoting, encoding and line ends can get wrong.
LONG_PASSWORD = ('quote " apostrophe \' backslash \\ amp & less < newline \n tab \t percent % Grüße ' * 20)[:1000]


@dataclasses.dataclass
class Trouble:
    """A fault: a scenario of the emulated BMC, or a server of its own, and how the tool is run."""

    cim: dict = dataclasses.field(default_factory=dict)
    plain: bool = False
    arguments: list = dataclasses.field(default_factory=list)
    environment: dict = dataclasses.field(default_factory=dict)
    server: Callable = None
    uri: str = None
    password: str = None
    store_password: str = None
    bmc_password: str = None
    port: str = None  # "redfish", or one of the emulated BMC's for CIM
    seconds: float = 20.0


def always(key, **answer):
    """A scenario in which this request has this answer, for ever."""
    return {"answers": {key: [{**answer, "repeat": True}]}}


def objects(**answer):
    """Each list of objects that the library asks for is answered so; the preflight gets its own."""
    return {"answers": {SERVICE: [{}, {**answer, "repeat": True}]}}


def returns(value):
    return always(EXPORT, **{"return": value})


def speaking_server(*answers, more=b""):
    """A plain server: an answer for each request, the last for the rest; then `more` until the client closes."""
    @contextlib.contextmanager
    def serve():
        with socket.create_server(("127.0.0.1", 0)) as listener:
            thread = threading.Thread(target=_speak, args=(listener, list(answers), more))
            thread.start()
            yield "127.0.0.1", listener.getsockname()[1]
            listener.shutdown(socket.SHUT_RDWR)
            thread.join()
    return serve


def _speak(listener, answers, more):
    while True:
        try:
            connection, _ = listener.accept()
        except OSError:
            return
        with connection, contextlib.suppress(OSError):
            connection.settimeout(30)
            while connection.recv(65536):
                connection.sendall(answers.pop(0) if len(answers) > 1 else answers[0])
                while more:
                    connection.sendall(more)


NO_BODY = b"Content-Length: 1000\r\n\r\n"
ALONE = {"truncate": 0, "trailer": {"CIMStatusCode": "3", "CIMStatusCodeDescription": "no%20such%20place"}}
MANY_OBJECTS = {"body": (
    '<?xml version="1.0"?><CIM CIMVERSION="2.0" DTDVERSION="2.0"><MESSAGE ID="1" PROTOCOLVERSION="1.0">'
    '<SIMPLERSP><IMETHODRESPONSE NAME="EnumerateInstances"><IRETURNVALUE>'
    + '<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME="X"/><INSTANCE CLASSNAME="X"/></VALUE.NAMEDINSTANCE>' * 20000
    + "</IRETURNVALUE></IMETHODRESPONSE></SIMPLERSP></MESSAGE></CIM>"),
    "headers": {"CIMOperation": "MethodResponse", "Content-Type": "application/xml"}}
MANY_ELEMENTS = {**MANY_OBJECTS, "body": '<?xml version="1.0"?><CIM>' + "<a/>" * 800000 + "</CIM>"}

ODD_PATH = 'a "quoted" & <b> \\ Grüße'

SCENARIOS = {
    "Refused port": Trouble(server=closed_port),
    "Unknown host": Trouble(server=unknown_host),
    "TLS port spoken to in plain": Trouble(plain=True, port="https_port"),
    "Plain port spoken to in TLS": Trouble(port="port"),
    "Server that accepts connections and never begins TLS": Trouble(
        server=mute_server, environment=TWO_SECONDS, seconds=6),
    "Plain server that never answers": Trouble(
        server=mute_server, plain=True, environment=TWO_SECONDS, seconds=6),
    "TLS server that never answers": Trouble(always("*", hang=True), environment=TWO_SECONDS, seconds=6),
    "Another kind of server on the port": Trouble(port="redfish"),
    "Wrong credentials": Trouble(password="wrong"),
    "401 without a challenge": Trouble({"challenge": None}),
    "Digest challenge": Trouble({"challenge": 'Digest realm="{host}", nonce="1"'}),
    "Two challenges, the first of them Digest": Trouble(
        server=speaking_server(
            b'HTTP/1.1 401 No\r\nContent-Length: 0\r\nWWW-Authenticate: Digest realm="x", nonce="1"\r\n'
            b'WWW-Authenticate: Basic realm="x"\r\n\r\n'), plain=True, seconds=5),
    "Account without the right to read": Trouble(always(SERVICE, error=2)),
    "400": Trouble(always("*", status=400, headers={"CIMError": "request-not-valid", "PGErrorDetail": "no"})),
    "503": Trouble(always("*", status=503)),
    "302": Trouble(always("*", status=302, headers={"Location": "http://127.0.0.1:1/"})),
    "No such namespace": Trouble(arguments=["--node", "9"]),
    "No such class": Trouble(always(SERVICE, error={"code": 5, "text": "ZOR_FFDCService"})),
    "First answer is not XML": Trouble(always(SERVICE, body="hello")),
    "First answer is cut": Trouble(always(SERVICE, truncate=500)),
    "First answer has no declaration": Trouble(always(SERVICE, declaration=False)),
    "First answer is 100,000 levels deep": Trouble(always(SERVICE, nested=100000)),
    "First answer is 100 MB long": Trouble(always(SERVICE, fill=100000000)),
    "First answer lists 20,000 objects": Trouble(always(SERVICE, **MANY_OBJECTS)),
    "First answer: 800,000 elements": Trouble(always(SERVICE, **MANY_ELEMENTS)),
    "First answer: a CIM error in the trailer, and no document": Trouble(always(SERVICE, **ALONE)),
    "First answer: 503 whose body never comes": Trouble(
        server=speaking_server(b"HTTP/1.1 503 Busy\r\n" + NO_BODY), plain=True, seconds=5),
    "First answer: 401 whose body never comes": Trouble(
        server=speaking_server(b"HTTP/1.1 401 No\r\n" + NO_BODY), plain=True, seconds=5),
    "First answer: trailers without end": Trouble(
        server=speaking_server(b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n",
                               more=b"X: y\r\n" * 10000), plain=True, seconds=10),
    "Second answer: a first header line that begins with a blank": Trouble(
        server=speaking_server(
            b'HTTP/1.1 401 No\r\nContent-Length: 0\r\nWWW-Authenticate: Basic realm="x"\r\n\r\n',
            b"HTTP/1.1 200 OK\r\n Date: x\r\nCIMOperation: MethodResponse\r\nContent-Length: 0\r\n\r\n"),
        plain=True, seconds=5),
    "First answer: interim answers without end": Trouble(
        server=speaking_server(b"", more=b"HTTP/1.1 100 Continue\r\nX: y\r\n\r\n" * 1000), plain=True,
        environment=TWO_SECONDS, seconds=6),
    "First answer: one header line without end": Trouble(
        server=speaking_server(b"HTTP/1.1 200 OK\r\nX: ", more=b"y" * 65536), plain=True, seconds=5),
    "Connection closed instead of the first answer": Trouble(always(SERVICE, close="before")),
    "Connection cut within the first answer": Trouble(always(SERVICE, cut_after=200)),
    "Objects: 400": Trouble(objects(status=400)),
    "Objects: 401": Trouble(objects(status=401)),
    "Objects: 503": Trouble(objects(status=503)),
    "Objects: 503 whose body never comes": Trouble(
        objects(status=503, content_length=1000, hang_after=0), seconds=10),
    "Objects: a CIM error in the trailer, and no document": Trouble(objects(**ALONE)),
    "Objects: 20,000 of them": Trouble(objects(**MANY_OBJECTS)),
    "Objects: 800,000 elements": Trouble(objects(**MANY_ELEMENTS)),
    "Objects: 100 MB": Trouble(objects(fill=100000000)),
    "Objects: 302": Trouble(objects(status=302, headers={"Location": "http://127.0.0.1:1/"})),
    "Objects: not XML": Trouble(objects(body="hello")),
    "Objects: no declaration": Trouble(objects(declaration=False)),
    "Objects: cut": Trouble(objects(truncate=500)),
    "Objects: 100,000 levels deep": Trouble(objects(nested=100000), seconds=60),
    "Objects: entities that expand": Trouble(objects(entities=9)),
    "Objects: wrong message number": Trouble(objects(message_id="9")),
    "Objects: Content-Length too small": Trouble(objects(content_length=500)),
    "Objects: Content-Length too large": Trouble(objects(content_length=50000, close="after")),
    "Objects: unknown code in the trailer": Trouble(objects(trailer={"CIMStatusCode": "99"})),
    "Objects: connection closed instead of an answer": Trouble(objects(close="before")),
    "Objects: connection cut within the answer": Trouble(objects(cut_after=200)),
    "No service object": Trouble({"services": 0}),
    "No data object": Trouble({"data": []}),
    "Only data objects of type 4": Trouble({"data": [4, 4]}),
    "ExportData returns 1": Trouble(returns(1)),
    "ExportData returns 3": Trouble(returns(3)),
    "ExportData returns 4": Trouble(returns(4)),
    "ExportData returns 5": Trouble(returns(5)),
    "ExportData returns 6": Trouble(returns(6)),
    "ExportData returns 3 for the second object": Trouble({"answers": {EXPORT: [{}, {"return": 3}]}}),
    "Return value missing": Trouble(returns("absent")),
    "Return value of another type": Trouble(returns({"type": "uint16", "value": 0})),
    "Return value null": Trouble(returns({"type": "uint32"})),
    "Export ends with a CIM error": Trouble(always(EXPORT, error={"code": 1, "text": "disk full on <store>"})),
    "Export ends with an error that holds terminal escapes": Trouble(
        always(EXPORT, error={"code": 1, "description": "\x1b]0;owned\x07\x1b[2Jno"})),
    "Export: unknown code in the trailer": Trouble(
        always(EXPORT, **{"return": 0, "trailer": {"CIMStatusCode": "99"}})),
    "Export: 503": Trouble(always(EXPORT, status=503)),
    "Export never answered (bounded by --deadline)": Trouble(
        always(EXPORT, hang=True), arguments=["--deadline", "6"], seconds=12),
    "Export: connection closed instead of an answer": Trouble(always(EXPORT, close="before")),
    "File store refuses the password": Trouble(store_password="not this one"),
    "Connection closed between the requests": Trouble(
        always("*", close="after", headers={"Connection": "close"})),
    "Object path with quotes, `&`, `<`, UTF-8": Trouble({"data": [{"type": 1, "id": ODD_PATH}]}),
    "Object without a type": Trouble({"data": [{"type": 1, "without": ["DataCollectionType"]}]}),
    "Export URI with neither word": Trouble(uri="ftp://127.0.0.1/in/"),
    "Export URI with both words": Trouble(uri="STORE/tftp/"),
    "Password of 1,000 characters with quotes, newlines and UTF-8": Trouble(bmc_password=LONG_PASSWORD),
}


def test_every_row_has_a_scenario_and_every_scenario_a_row():
    assert sorted(ROWS) == sorted(SCENARIOS)


@pytest.fixture(scope="module")
def store(tmp_path_factory):
    folder = tmp_path_factory.mktemp("store")
    for name in ("in", "tftp"):
        (folder / name).mkdir()
    started = cim_tool.Store(folder)
    yield started
    started.stop()


@pytest.fixture
def emptied(store):
    for file in store.folder.rglob("*"):
        if file.is_file():
            file.unlink()
    return store


@contextlib.contextmanager
def place_of(trouble):
    """Address, port, user and password of what the tool is to be pointed at; the BMC, if it is one."""
    if trouble.server:
        with trouble.server() as (host, port):
            yield host, port, "admin", "a secret for nobody", None
        return
    scenario = {"cim": trouble.cim}
    if trouble.bmc_password:
        scenario["password"] = trouble.bmc_password
    bmc = tool.Bmc(scenario)
    try:
        port = cim_tool.port_of(bmc, trouble.plain)
        if trouble.port:
            port = bmc.ready["redfish"]["port"] if trouble.port == "redfish" else bmc.ready["cim"][trouble.port]
        yield bmc.address, port, bmc.user, trouble.password or bmc.password, bmc
    finally:
        bmc.stop()


def check_library_code(row, steps):
    found = {step["name"]: step["code"] for step in steps}
    if row.library == "none":
        assert not set(found) & {"connect", "export"}
        return
    if row.library == "stopped":
        return
    operation, result = row.library.split(" ")
    assert found["connect"] == 0
    assert found.get("export", 0 if operation == "Connect" else None) == int(result)
    assert ("export" in found) == (operation == "Apply")


def check_objects(account, bmc):
    """The account names every object, and only the last that was tried may have failed."""
    outcomes = [one["outcome"] for one in account["objects"]]
    assert len(outcomes) <= len(bmc.ready["cim"]["archives"])
    tried = [o for o in outcomes if o != "not-tried"]
    assert outcomes == tried + ["not-tried"] * (len(outcomes) - len(tried))
    assert all(o in ("exported", "skipped") for o in tried[:-1])
    if account["exit_code"] == 0:
        assert set(outcomes) <= {"exported", "skipped"} and "exported" in outcomes


@pytest.mark.parametrize("what", sorted(SCENARIOS))
def test_fault(what, emptied, tmp_path):
    row, trouble = ROWS[what], SCENARIOS[what]
    log = tmp_path / "log"
    uri = (trouble.uri or "STORE/in/").replace("STORE/", emptied.uri())
    with place_of(trouble) as (host, port, user, password, bmc):
        ended = tool.run(
            ["collect", "--via", "cim", host, "--port", str(port), "--user", user, "--password-file", "-",
             "--export-uri", uri, *emptied.account(), "--json", "--log-file", str(log),
             *(["--plain"] if trouble.plain else []), *trouble.arguments],
            password=password, seconds=trouble.seconds,
            environment={**emptied.secrets(trouble.store_password), **trouble.environment})
        log_text = log.read_text(encoding="utf-8", errors="replace") if log.exists() else ""
        check_texts(ended, log_text, {emptied.password, password})
        expected = cim_tool.archives(bmc) if bmc else []
        asked = len(cim_tool.requests(bmc)) if bmc else 0

    assert ended.code == row.code, ended.err
    received = cim_tool.files_of(emptied.folder)
    if row.code == 2:  # there is no run that could be told about
        assert asked == 0 and received == {}
        assert re.fullmatch(f"kemffdc: {row.pattern(host, port)}\nTry 'kemffdc collect --help'.\n", ended.err)
        return
    account = ended.json
    assert account["exit_code"] == row.code
    check_library_code(row, account["steps"])
    exported = [n for n, one in enumerate(account["objects"]) if one["outcome"] == "exported"]
    assert sorted(received.values()) == sorted(expected[n] for n in exported)
    if bmc:
        check_objects(account, bmc)
    if row.code != 0:
        assert not check_reason(row, (host, port), ended)
        assert account["export_uri"] is None
        return
    assert row.text == "Exported to"
    assert account["export_uri"] == uri


def test_no_thread_of_these_tests_is_left():
    assert threading.active_count() == 1
