# SPDX-License-Identifier: Apache-2.0
"""The tree of a Redfish service as an archive: three vendors' shapes, and every row of docs/faults.md about it."""

import contextlib
import http.server
import json
import pathlib
import re
import signal
import ssl
import tarfile
import threading

import pytest

import faults_table
import odd_servers
import tool

SHAPES = tool.ROOT / "emulator" / "shapes"
HEADING = "Over Redfish, the tree"
ROWS = faults_table.rows(HEADING)
TWO_SECONDS = {"VARNEX_REST_ACTION_TIMEOUT": "2"}
CHASSIS = "GET /redfish/v1/Chassis/1"


def shaped(name, **more):
    return {"redfish": {"shape": str(SHAPES / f"{name}.yaml"), **more}}


def tree(bmc, output, *arguments):
    return tool.collect(bmc, output, "--operation", "tree", *arguments)


def collect(bmc, output, *arguments, **options):
    ended = tool.run(tree(bmc, output, "--json", *arguments), password=bmc.password, **options)
    assert ended.code == 0, ended.err
    return ended.json


def contents(path):
    """Texts by name."""
    with tarfile.open(path) as archive:
        return {member.name: archive.extractfile(member).read().decode() for member in archive}


def resources_of(files):
    return {name: json.loads(text) for name, text in files.items() if name.startswith("redfish/")}


def paths(bmc, method="GET"):
    """What was asked for, with the queries."""
    return [r["path"] + ("?" + r["query"] if r["query"] else "") for r in bmc.requests(method)]


class Reading:
    """A run that has ended, and the BMC it read, which nobody asks any more."""

    def __init__(self, bmc, ended):
        self.bmc = bmc
        self.ended = ended
        self.result = ended.json
        self.files = contents(self.result["path"])


@pytest.fixture(name="reading", scope="module")
def _reading(tmp_path_factory):
    """The tree of a shape, read once for all who look at it."""
    known = {}

    def of(name):
        if name not in known:
            bmc = tool.Bmc(shaped(name))
            ended = tool.run(tree(bmc, tmp_path_factory.mktemp(name), "--json"), password=bmc.password, seconds=120)
            known[name] = Reading(bmc, ended)
        return known[name]

    yield of
    for one in known.values():
        one.bmc.stop()


# --- what is read --------------------------------------------------------------------------------


def test_every_resource_lies_at_its_own_path(reading):
    result, files = reading("harrow").result, reading("harrow").files

    for name, resource in resources_of(files).items():
        if "/page-" not in name:
            assert name == resource["@odata.id"].strip("/") + "/index.json"
    assert reading("harrow").ended.code == 0
    assert result["tree"]["resources"] == 3195 and result["tree"]["log_entries"] == 3120
    assert result["tree"]["limits"] == [] and result["tree"]["unread"] == 0
    assert json.loads(files["errors.json"]) == []
    assert result["operation"] == "tree" and result["remote_path"] is None
    assert pathlib.Path(result["path"]).name.endswith("_tree.tar.gz")


def test_the_manifest_tells_what_it_is_and_of_whom(reading):
    bmc, result = reading("harrow").bmc, reading("harrow").result
    manifest = json.loads(reading("harrow").files["manifest.json"])

    assert manifest["kind"] == "redfish-tree" and "no archive of the BMC's own making" in manifest["note"]
    assert manifest["version"] == result["version"] and manifest["host"] == bmc.address
    assert manifest["bmc"]["vendor"] == "Harrow" and manifest["bmc"]["product"] == "Harrow Lights-On Controller"
    assert {name: manifest[name] for name in result["tree"]} == result["tree"]
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", manifest["begun"])


@pytest.mark.parametrize("name", ["harrow", "orlan", "quillon"])
def test_all_that_a_service_shows_is_read_once_and_nothing_else_is_done(reading, name):
    bmc = reading(name).bmc
    asked = paths(bmc)
    read = asked[asked.index("/redfish/v1/", 1):]  # behind the preflight

    assert len(read) == len(set(read))
    assert {r["method"] for r in bmc.requests()} == {"GET", "POST", "DELETE"}
    assert paths(bmc, "POST") == ["/redfish/v1/SessionService/Sessions"]
    assert len(paths(bmc, "DELETE")) == 1


def test_entries_of_a_log_are_all_there_and_in_order(reading):
    files = resources_of(reading("harrow").files)
    folder = "redfish/v1/Managers/Self/LogServices/SEL/Entries/"
    pages = [files[folder + name] for name in ["index.json"] + [f"page-{n:05}.json" for n in range(2, 31)]]

    assert [entry["Id"] for page in pages for entry in page["Members"]] == [str(n) for n in range(1, 3001)]


def test_members_come_with_their_collection_and_lie_at_their_own_paths(reading):
    bmc, result, files = reading("orlan").bmc, reading("orlan").result, resources_of(reading("orlan").files)

    for number in (1, 40):
        assert files[f"redfish/v1/Chassis/node-1/Sensors/t{number}/index.json"]["Reading"] == 31.5
    for number in (1, 200, 201, 2000):
        assert files[f"redfish/v1/Systems/node-1/LogServices/Journal/Entries/{number}/index.json"]["Id"] == str(number)
    assert result["tree"]["log_entries"] == 2950
    assert result["tree"]["requests"] < 100
    assert any("$expand=.($levels=1)" in path for path in paths(bmc))


def test_without_the_offer_each_is_asked_for(start_bmc, tmp_path):
    refuses = {"GET *[?]$expand*": [{"status": 501, "repeat": True}]}
    bmc = start_bmc(shaped("orlan", answers={"GET /redfish/v1/Chassis/node-1/Sensors": [{}, {"status": 501}],
                                             "GET /redfish/v1/Chassis": [{}, {"status": 501}], **refuses}))
    result = collect(bmc, tmp_path)
    assert result["tree"]["unread"] == 0
    assert "/redfish/v1/Chassis/node-1/Sensors/t40" in paths(bmc)


def test_circles_pages_without_end_and_links_that_lead_away_end(reading):
    ended, files = reading("quillon").ended, reading("quillon").files

    assert ended.code == 9 and ended.json["outcome"] == "files-missing"
    assert ended.json["tree"]["limits"] == [
        "Of /redfish/v1/Managers/Frame/LogServices/River/Entries no more than 1000 pages were read."]
    told = {one["path"].partition("?")[0]: (one["status"], one["reason"]) for one in json.loads(files["errors.json"])}
    assert told["https://192.0.2.99/redfish/v1/Managers/Frame"] == (
        None, "The link in /redfish/v1/Managers/Frame leads to another host.")
    assert told["/redfish/v1/Chassis/Gone"][0] == 404
    assert "leads back to a page that was read" in told["/redfish/v1/Managers/Frame/LogServices/Ring/Entries"][1]
    assert "pages without anything new" in told["/redfish/v1/Managers/Frame/LogServices/Echo/Entries"][1]
    for number in range(1, 5):
        assert f"redfish/v1/Chassis/Blade{number}/index.json" in files


# --- what is not ---------------------------------------------------------------------------------


@pytest.mark.parametrize("name, secrets", [
    ("harrow", ["harrow-community", "alert-word", "harrow-token", "bios-setup-word", "drive-7-lock"]),
    ("quillon", ["quentin", "quentins-word", "radius-word"]),
])
def test_secrets_do_not_leave_the_bmc(reading, name, secrets):
    bmc, ended = reading(name).bmc, reading(name).ended
    everything = "".join(reading(name).files.values()) + ended.out + ended.err

    for secret in [*secrets, bmc.password, *bmc.tokens()]:
        assert secret not in everything
    assert ended.json["tree"]["masked"] > 0 or name == "orlan"


def test_a_bmc_that_tells_the_runs_own_secrets_tells_them_to_nobody(start_bmc, tmp_path):
    password = "the-bmcs-own-word"
    chatty = {"Id": "1", "Motto": f"admin/{password}", password: 1}
    bmc = start_bmc({"password": password, "redfish": {"answers": {CHASSIS: [{"json": chatty}]}}})
    result = collect(bmc, tmp_path)
    assert password not in "".join(contents(result["path"]).values())


def test_every_word_that_the_page_names_makes_a_secret(start_bmc, tmp_path):
    page = (tool.ROOT / "docs" / "redfish-operations.md").read_text(encoding="utf-8")
    listed = page.partition("### Secrets")[2].partition("- `Value`")[0]
    words = re.findall(r"`([a-z]+)`", listed)
    assert len(words) == 20
    members = {f"My_{word.upper()}.1": f"hush-{number}" for number, word in enumerate(words)}
    bmc = start_bmc({"redfish": {"answers": {CHASSIS: [{"json": {"Id": "1", **members}}]}}})
    result = collect(bmc, tmp_path)

    assert result["tree"]["masked"] == len(words)
    assert "hush-" not in "".join(contents(result["path"]).values())


def test_accounts_sessions_certificates_and_keys_are_not_asked_for(reading):
    for path in paths(reading("harrow").bmc):
        for left_out in ("Account", "Session", "Certificate", "Registries", "Roles"):
            assert left_out not in path
    assert reading("harrow").result["tree"]["left_out"] >= 5


# --- show, history -------------------------------------------------------------------------------


def test_show_knows_such_an_archive(reading):
    result = reading("harrow").result
    shown = tool.run(["show", result["path"], "--json"])
    words = tool.run(["show", result["path"]]).out

    assert shown.code == 0
    assert shown.json["contents"][0]["tree"] == result["tree"]
    assert "Kind:      Redfish tree, read by kemffdc " in words
    assert "no archive of the BMC's own making" in words
    assert "Read:      3195 resources, 3120 of them log entries" in words
    assert tool.run(["verify", result["path"]]).code == 0


def test_a_bmcs_own_archive_is_no_tree(bmc, tmp_path, state):
    ended = tool.run(tool.collect(bmc, tmp_path, "--json"), password=bmc.password)
    assert "tree" not in ended.json
    assert tool.run(["show", ended.json["path"], "--json"]).json["contents"][0]["tree"] is None


def test_words_say_that_it_is_no_archive_of_the_bmcs_own(start_bmc, tmp_path):
    bmc = start_bmc()
    ended = tool.run(tree(bmc, tmp_path), password=bmc.password)
    assert re.search(r"^Tree:    70 resources, 40 of them log entries\. No archive of the BMC's own making\.$",
                     ended.out, re.MULTILINE)


def test_where_nothing_else_is_offered_the_tree_is_taken(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"export_action": "missing"}})
    ended = tool.run(tool.collect(bmc, tmp_path, "--json"), password=bmc.password)
    assert (ended.code, ended.json["operation"]) == (0, "tree"), ended.err
    assert ended.json["tree"]["resources"] > 60


# --- a service of files ------------------------------------------------------------------------


@contextlib.contextmanager
def mockup(folder, files):
    """A web server of the standard library's that serves a tree as files, in the layout that mockups of Redfish have; yields its port."""

    class Handler(http.server.BaseHTTPRequestHandler):
        protocol_version = "HTTP/1.1"

        def do_GET(self):  # pylint: disable=invalid-name
            text = files.get(self.path.strip("/") + "/index.json")
            body = (text or "{}").encode()
            self.send_response(200 if text else 404)
            self.send_header("Content-Length", str(len(body)))
            self.end_headers()
            self.wfile.write(body)

        def log_message(self, *_):  # pylint: disable=arguments-differ
            pass

    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(odd_servers.make_certificate(folder))
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    server.socket = context.wrap_socket(server.socket, server_side=True)
    thread = threading.Thread(target=server.serve_forever)
    thread.start()
    try:
        yield server.server_port
    finally:
        server.shutdown()
        thread.join()
        server.server_close()


def test_an_archive_can_be_served_as_a_mockup_and_read_again(start_bmc, tmp_path):
    """It knows neither sessions nor queries, and lacks what was left out."""
    first = contents(collect(start_bmc(), tmp_path / "first")["path"])
    with mockup(tmp_path, first) as port:
        ended = tool.run(["collect", "--via", "redfish", "127.0.0.1", "--port", str(port), "--user", "admin", "--password-file", "-",
                          "--operation", "tree", "--output", str(tmp_path / "second"), "--json"], password="any")
    assert ended.code == 0, ended.err
    assert resources_of(contents(ended.json["path"])) == resources_of(first)


# --- the end of a run ----------------------------------------------------------------------------

SLOW = {"answers": {"GET /redfish/v1/*": [{"delay": 0.3, "repeat": True}]}}


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_an_interrupt_leaves_nothing(start_bmc, tmp_path, number):
    bmc = start_bmc(shaped("harrow", **SLOW))
    running = tool.Running(tree(bmc, tmp_path), password=bmc.password)
    bmc.wait_for("/redfish/v1/Systems/Self/Memory")
    ended = running.interrupt(number)
    assert ended.code == 130
    assert tool.files_in(tmp_path) == []
    assert len(paths(bmc, "DELETE")) == 1


def test_one_that_was_interrupted_is_read_anew(start_bmc, tmp_path, state):
    bmc = start_bmc(shaped("harrow", answers={"GET /redfish/v1/Systems/Self/Memory": [{"delay": 2.0}]}))
    running = tool.Running(tree(bmc, tmp_path / "out"), password=bmc.password)
    bmc.wait_for("/redfish/v1/Systems/Self/Memory")
    assert running.interrupt().code == 130
    ended = tool.run(["resume", "1", "--password-file", "-", "--json"], password=bmc.password)
    assert ended.code == 0, ended.err
    assert "Of a tree nothing can be gone on with: it is read anew." in ended.json["bmc"]["notes"]
    assert (ended.json["command"], ended.json["tree"]["resources"]) == ("resume", 3195)
    assert tool.archives_in(tmp_path / "out") == [pathlib.Path(ended.json["path"]).name]


def test_a_deadline_leaves_nothing(start_bmc, tmp_path):
    bmc = start_bmc(shaped("harrow", **SLOW))
    ended = tool.run(tree(bmc, tmp_path, "--deadline", f"{int(4 * tool.SLOWNESS)}s"), password=bmc.password)
    assert ended.code == 6
    assert tool.files_in(tmp_path) == []


def test_an_interrupt_while_the_bmc_is_busy_does_not_wait_for_it(start_bmc, tmp_path):
    busy = {"status": 503, "headers": {"Retry-After": "60"}, "repeat": True}
    bmc = start_bmc({"redfish": {"answers": {CHASSIS: [busy]}}})
    running = tool.Running(tree(bmc, tmp_path), password=bmc.password)
    bmc.wait_for("/redfish/v1/Chassis/1")
    assert running.interrupt().code == 130
    assert tool.files_in(tmp_path) == []


def test_nothing_is_asked_while_an_answer_is_awaited(start_bmc, tmp_path):
    """Each request came in after the answer to the one before it, which took 0.1 s."""
    bmc = start_bmc({"redfish": {"answers": {"GET /redfish/v1/*": [{"delay": 0.1, "repeat": True}]}}})
    ended = tool.run(tree(bmc, tmp_path, "--json"), password=bmc.password)
    assert ended.code == 0, ended.err
    step = next(step for step in ended.json["steps"] if step["name"] == "read")
    assert step["seconds"] >= 0.1 * ended.json["tree"]["requests"]


# --- the table -----------------------------------------------------------------------------------


class Trouble:
    """A fault: what the emulated BMC answers, and how the tool is run."""

    def __init__(self, answers=None, shape=None, arguments=(), environment=None, seconds=30.0):
        self.redfish = {"answers": answers or {}, **({"shape": str(SHAPES / f"{shape}.yaml")} if shape else {})}
        self.arguments = arguments
        self.environment = environment
        self.seconds = seconds


def always(**answer):
    return [{**answer, "repeat": True}]


BUSY = {"status": 503, "headers": {"Retry-After": "1"}}
ENTRIES = "GET /redfish/v1/Managers/1/LogServices/EventLog/Entries"
BELOW = "GET /redfish/v1/Chassis*"

SCENARIOS = {
    "Pages of a log without end": Trouble(shape="quillon", seconds=120),
    "Pages of a log in a circle": Trouble({ENTRIES: always(json={
        "Members": [], "Members@odata.nextLink": "/redfish/v1/Managers/1/LogServices/EventLog/Entries?$skip=1"})}),
    "Links in a circle": Trouble({CHASSIS: always(json={"Id": "1", "Back": {"@odata.id": "/redfish/v1/Chassis"}})}),
    "A link to another host": Trouble({CHASSIS: [{"json": {"Id": "1", "X": {"@odata.id": "https://192.0.2.9/redfish/v1/X"}}}]}),
    "A resource that is not there": Trouble({CHASSIS: always(status=404)}),
    "An answer that is no JSON": Trouble({CHASSIS: always(body="<html>")}),
    "An answer of 100 MB": Trouble({CHASSIS: always(fill=100_000_000)}),
    "An answer that nests 100,000 levels": Trouble({CHASSIS: always(nested=100000)}),
    "401 in the middle": Trouble({CHASSIS: [{"status": 401}]}),
    "401 in the middle, and again": Trouble({CHASSIS: [{"status": 401}], "GET /redfish/v1/Chassis/1/*": always(status=401),
                                             "GET /redfish/v1/Managers/1/*": always(status=401)}),
    "503 with Retry-After": Trouble({CHASSIS: [BUSY, BUSY]}),
    "503 for ever": Trouble({"GET /redfish/v1/Chassis/1": always(**BUSY), "GET /redfish/v1/TaskService*": always(**BUSY),
                             "GET /redfish/v1/Managers/1/*": always(**BUSY)}, seconds=60),
    "No answer any more": Trouble({"GET /redfish/v1/Chassis/1": always(hang=True), "GET /redfish/v1/Chassis/1/*": always(hang=True),
                                   "GET /redfish/v1/Managers/1/*": always(hang=True), "GET /redfish/v1/TaskService/*": always(hang=True),
                                   "GET /redfish/v1/Systems/1/*": always(hang=True)}, environment=TWO_SECONDS),
    "A connection that is cut": Trouble({CHASSIS: [{"cut_after": 10}]}),
    "No session to be had": Trouble({tool.SESSIONS: always(status=503)}),
    "Nothing below the service root": Trouble({"GET /redfish/v1/Systems": always(status=500), "GET /redfish/v1/Chassis": always(status=500),
                                               "GET /redfish/v1/Managers": always(status=500),
                                               "GET /redfish/v1/TaskService": always(status=500)}),
    "More than --max-size": Trouble(shape="harrow", arguments=("--max-size", "16K")),
}


def test_every_row_has_a_scenario_and_every_scenario_a_row():
    assert set(SCENARIOS) == set(ROWS)


@pytest.mark.parametrize("what", SCENARIOS)
def test_row(start_bmc, tmp_path, what):
    trouble, row = SCENARIOS[what], ROWS[what]
    bmc = start_bmc({"redfish": trouble.redfish})
    ended = tool.run(tree(bmc, tmp_path, *trouble.arguments), password=bmc.password, environment=trouble.environment,
                     seconds=trouble.seconds)

    assert ended.code == row.code, ended.err
    assert re.search(row.pattern(bmc.address, bmc.port), ended.out + ended.err), ended.out + ended.err
    archives = tool.archives_in(tmp_path)
    assert len(archives) == (1 if row.code in (0, 9) else 0)
