# SPDX-License-Identifier: Apache-2.0
"""The tool over CIM, as a user runs it: the BMC uploads to real file stores."""

import re
import signal
import time

import pytest

import cim_tool
import faults_table
import odd_servers
import tool

BOUND = 1.0  # seconds from a signal to the end; instrumented builds get more


def has_ipv6():
    try:
        tool.free_port("::1")
        return True
    except OSError:
        return False


needs_ipv6 = pytest.mark.skipif(not has_ipv6(), reason="no IPv6 on this machine")


@pytest.fixture
def store(tmp_path):
    folder = tmp_path / "store"
    (folder / "in").mkdir(parents=True)
    started = cim_tool.Store(folder)
    yield started
    started.stop()


def export(bmc, store, *arguments, plain=False, path="in/", **options):
    """A run that exports to the store."""
    return tool.run(
        cim_tool.collect(bmc, store.uri(path), *store.account(), *arguments, plain=plain),
        password=bmc.password, environment=store.secrets(), **options)


# --- the main job -----------------------------------------------------------------------------


@pytest.mark.parametrize("plain", [False, True], ids=["tls", "plain"])
@pytest.mark.parametrize("address", ["127.0.0.1", pytest.param("::1", marks=needs_ipv6)])
def test_each_objects_archive_arrives_byte_for_byte(start_bmc, store, plain, address):
    bmc = start_bmc(None, "--bind", address)
    ended = export(bmc, store, plain=plain)
    assert ended.code == 0, ended.err
    archives = bmc.ready["cim"]["archives"]
    wanted = {f"in/{a['name']}": data for a, data in zip(archives.values(), cim_tool.archives(bmc))}
    skipped = f"in/{archives['ZOR:FFDC:3:4']['name']}"
    del wanted[skipped]
    assert cim_tool.files_of(store.folder) == wanted
    assert {request["tls"] for request in cim_tool.requests(bmc)} == {not plain}


def test_the_output_names_the_target_and_each_object(bmc, store):
    ended = export(bmc, store)
    assert ended.code == 0, ended.err
    assert re.fullmatch(
        re.escape(f"Exported to: {store.uri('in/')}\n")
        + r'  ZOR_FFDCData\.InstanceID="ZOR:FFDC:1:1", type 1: uploaded by the BMC in 0:0\d\n'
        r'  ZOR_FFDCData\.InstanceID="ZOR:FFDC:2:2", type 2: uploaded by the BMC in 0:0\d\n'
        r'  ZOR_FFDCData\.InstanceID="ZOR:FFDC:3:4", type 4: skipped, objects of this type are never exported\n',
        ended.out)


def test_progress_tells_that_the_bmc_uploads_and_counts_the_objects(bmc, store):
    ended = export(bmc, store)
    lines = [re.sub(r"^\d+:\d\d  ", "", line) for line in ended.err.splitlines()]
    assert re.fullmatch(r"The certificate of .* is new, is accepted and remembered in .*", lines.pop(1))
    assert lines == [
        "preflight", "connect", "export",
        f"The BMC itself uploads its archives to {store.uri('in/')}; none comes to this machine.",
        "export: looking for ZOR_FFDCService", "export: looking for ZOR_FFDCData",
        "export: object 1 of 3 (type 1): the BMC gathers and uploads, for up to 20 minutes",
        "export: object 2 of 3 (type 2): the BMC gathers and uploads, for up to 20 minutes",
        "export: object 3 of 3 (type 4): skipped"]


def test_json_lists_each_object_with_path_type_and_outcome(bmc, store):
    ended = export(bmc, store, "--json")
    assert ended.code == 0, ended.err
    assert ended.out.count("\n") == 1
    account = ended.json
    assert (account["schema"], account["command"], account["channel"]) == (1, "collect", "cim")
    assert (account["outcome"], account["exit_code"], account["reason"]) == ("exported", 0, None)
    assert (account["export_uri"], account["path"], account["size"]) == (store.uri("in/"), None, None)
    assert [(s["name"], s["code"]) for s in account["steps"]] == [("preflight", 0), ("connect", 0), ("export", 0)]
    assert [list(one) for one in account["objects"]] == [
        ["path", "collection_type", "outcome", "return_value", "seconds"]] * 3
    assert [list(one.values())[:4] for one in account["objects"]] == [
        ['ZOR_FFDCData.InstanceID="ZOR:FFDC:1:1"', "1", "exported", "0"],
        ['ZOR_FFDCData.InstanceID="ZOR:FFDC:2:2"', "2", "exported", "0"],
        ['ZOR_FFDCData.InstanceID="ZOR:FFDC:3:4"', "4", "skipped", None]]


def test_json_of_a_failure_tells_which_object_and_which_value(start_bmc, store):
    bmc = start_bmc({"cim": {"answers": {"ExportData": [{}, {"return": 3}]}}})
    ended = export(bmc, store, "--json")
    assert ended.code == 4
    account = ended.json
    assert (account["outcome"], account["export_uri"]) == ("export-refused", None)
    assert [(one["outcome"], one["return_value"]) for one in account["objects"]] == [
        ("exported", "0"), ("refused", "3"), ("not-tried", None)]
    assert account["steps"][-1]["code"] == 4
    assert len(cim_tool.files_of(store.folder)) == 1


def test_odd_object_paths_are_told_as_they_are(start_bmc, store):
    bmc = start_bmc({"cim": {"data": [{"type": 1, "id": 'a "q" & <b> Grüße'}]}})
    ended = export(bmc, store, "--json", path="in/one.tar.gz")
    assert ended.code == 0, ended.err
    assert ended.json["objects"][0]["path"] == 'ZOR_FFDCData.InstanceID="a \\"q\\" & <b> Grüße"'
    assert cim_tool.files_of(store.folder) == {"in/one.tar.gz": cim_tool.archives(bmc)[0]}


# --- what the BMC is sent ---------------------------------------------------------------------


@pytest.mark.parametrize("arguments, needed", [([], "FALSE"), (["--initialize"], "TRUE")])
def test_the_initialisation_flag_is_passed_on(bmc, store, arguments, needed):
    assert export(bmc, store, *arguments).code == 0
    assert [cim_tool.parameter(r, "InitializationNeeded") for r in cim_tool.requests(bmc, "ExportData")] == [needed] * 2


@pytest.mark.parametrize("arguments, namespace", [
    ([], "root%2Fcimv2"), (["--node", "2"], "zor%2Fkem2%2Fcimv2")])
def test_a_node_is_reached_in_its_own_namespace(bmc, store, arguments, namespace):
    assert export(bmc, store, *arguments).code == 0
    objects = {r["headers"]["CIMObject"].partition("%3A")[0] for r in cim_tool.requests(bmc)}
    assert objects == {namespace}


def test_sftp_goes_with_the_account_and_tftp_without(start_bmc, store):
    bmc = start_bmc({"cim": {"export": {"upload": False}}})
    assert export(bmc, store).code == 0
    for uri in ("tftp://127.0.0.1/x", "tftp://127.0.0.1/sftp"):
        assert tool.run(cim_tool.collect(bmc, uri), password=bmc.password).code == 0
    sent = [(cim_tool.parameter(r, "Username"), cim_tool.parameter(r, "Password"))
            for r in cim_tool.requests(bmc, "ExportData")]
    escaped = store.password.replace("&", "&amp;").replace("<", "&lt;").replace('"', "&quot;").replace("'", "&apos;")
    assert sent == [("up", escaped)] * 2 + [("", "")] * 4


def test_tftp_receives_the_archives(bmc, tmp_path):
    folder = tmp_path / "tftp"
    folder.mkdir()
    for number in (1, 2):  # TFTP servers take what is there already
        (folder / f"ffdc_{number}").touch()
        (folder / f"ffdc_{number}").chmod(0o666)
    folder.chmod(0o777)
    with cim_tool.tftp_store(folder) as port:
        uri = f"tftp://127.0.0.1:{port}/ffdc"
        ended = tool.run(cim_tool.collect(bmc, uri), password=bmc.password)
        assert ended.code == 0, ended.err
    assert cim_tool.files_of(folder) == {
        "ffdc_1": cim_tool.archives(bmc)[0], "ffdc_2": cim_tool.archives(bmc)[1]}


# --- usage ------------------------------------------------------------------------------------


@pytest.mark.parametrize("uri", ["ftp://127.0.0.1/in/", "https://127.0.0.1/sftp/", "SFTP://127.0.0.1/", "sftp:/x"])
def test_a_uri_of_another_kind_is_refused_before_anything_is_sent(bmc, uri):
    ended = tool.run(cim_tool.collect(bmc, uri), password=bmc.password)
    assert (ended.code, ended.out) == (2, "")
    assert ended.err.startswith("kemffdc: --export-uri ")
    assert cim_tool.requests(bmc) == []


def test_without_a_uri_there_is_nothing_to_collect(bmc):
    arguments = ["collect", *cim_tool.connection(bmc)]
    ended = tool.run(arguments, password=bmc.password)
    assert ended.code == 2
    assert "--via cim needs --export-uri: the BMC uploads its archives by itself." in ended.err
    assert cim_tool.requests(bmc) == []


# --- check ------------------------------------------------------------------------------------


def test_check_says_what_it_found_and_exports_nothing(bmc):
    ended = tool.run(cim_tool.check(bmc), password=bmc.password)
    assert ended.code == 0, ended.err
    fingerprint = ":".join(re.findall("..", bmc.ready["redfish"]["sha256"].upper()))
    for line in (
        f"BMC:             127.0.0.1 port {cim_tool.port_of(bmc)}, usable through cim\n",
        f"Certificate:     SHA-256 {fingerprint}\n",
        "Note: Namespace root/cimv2 has 3 data objects, of which 2 would be exported.\n",
    ):
        assert line in ended.out
    assert cim_tool.requests(bmc, "ExportData") == []


def test_check_in_plain_warns_that_passwords_can_be_read(bmc):
    ended = tool.run(cim_tool.check(bmc, plain=True), password=bmc.password)
    assert ended.code == 0, ended.err
    assert "Note: Without TLS everybody on the way can read the passwords that are sent.\n" in ended.out
    assert "Certificate" not in ended.out


def test_check_tells_that_nobody_can_be_asked(start_bmc):
    bmc = start_bmc({"cim": {"services": 0, "authentication": False}})
    ended = tool.run(cim_tool.check(bmc), password=bmc.password)
    assert ended.code == 10
    reason = "Namespace root/cimv2 has no object of class ZOR_FFDCService; the BMC cannot be asked for an export."
    assert ended.err.endswith(f"kemffdc: {reason} [exit code 10]\n")
    assert f"Note: {reason}\n" in ended.out
    assert "Note: The CIM server asks nobody for user and password.\n" in ended.out


@pytest.mark.parametrize("data, note", [
    ([], "has 0 data objects, of which 0 would be exported."),
    ([4, " 4 ", "\t4"], "has 3 data objects, of which 0 would be exported.")])
def test_check_tells_that_nothing_would_be_exported(start_bmc, data, note):
    bmc = start_bmc({"cim": {"data": data}})
    ended = tool.run(cim_tool.check(bmc, "--json"), password=bmc.password)
    assert ended.code == 10
    account = ended.json
    assert (account["outcome"], account["exit_code"]) == ("limited", 10)
    assert account["reason"] == f"Namespace root/cimv2 {note}"
    assert account["bmc"]["notes"][:-1] == [account["reason"]], "the last one is about the certificate"


def test_a_thousand_objects_of_more_than_a_mebibyte_are_read_by_tool_and_library(start_bmc, store):
    many = {"instances": 1000, "properties": 25}
    bmc = start_bmc({"cim": {"answers": {"EnumerateInstances ZOR_FFDCData": [{**many, "repeat": True}],
                                         "ExportData": [{"return": 0, "repeat": True}]}}})
    ended = tool.run(cim_tool.check(bmc), password=bmc.password)
    assert ended.code == 0, ended.err
    assert "has 1003 data objects, of which" in ended.out
    ended = export(bmc, store, "--json", seconds=60)
    assert ended.code == 0, ended.err
    assert len(ended.json["objects"]) == 1003


def test_check_as_json_holds_the_same(bmc):
    account = tool.run(cim_tool.check(bmc, "--json"), password=bmc.password).json
    assert (account["outcome"], account["exit_code"], account["objects"]) == ("checked", 0, [])
    assert account["bmc"]["certificate"]["sha256"].replace(":", "").lower() == bmc.ready["redfish"]["sha256"]
    assert account["bmc"]["notes"][:-1] == ["Namespace root/cimv2 has 3 data objects, of which 2 would be exported."]


# --- whom the password goes to ----------------------------------------------------------------


@pytest.mark.parametrize("how", ["option", "environment"])
def test_a_certificate_of_the_ca_is_taken_and_said_to_be_verified(bmc, store, how):
    file = bmc.ready["redfish"]["certificate"]  # one for all services
    option = ["--ca-file", file] if how == "option" else []
    environment = {"VARNEX_CA_FILE": file} if how == "environment" else {}
    ended = tool.run(cim_tool.collect(bmc, store.uri("in/"), *store.account(), "--json", *option),
                     password=bmc.password, environment={**store.secrets(), **environment})
    assert ended.code == 0, ended.err
    assert ended.json["bmc"]["certificate"]["verified"] is True


@pytest.mark.parametrize("command", ["check", "collect"])
@pytest.mark.parametrize("how", ["option", "environment"])
def test_an_impostor_gets_no_request_at_all(start_bmc, command, how):
    bmc, impostor = start_bmc(), start_bmc()
    file = bmc.ready["redfish"]["certificate"]
    option = ["--ca-file", file] if how == "option" else []
    environment = {"VARNEX_CA_FILE": file} if how == "environment" else {}
    arguments = (cim_tool.check(impostor, "--json", *option) if command == "check"
                 else cim_tool.collect(impostor, "tftp://127.0.0.1/x", "--json", *option))
    ended = tool.run(arguments, password=impostor.password, environment=environment)
    assert ended.code == 3
    assert cim_tool.requests(impostor) == []
    account = ended.json
    assert account["reason"].startswith(
        f"The certificate of 127.0.0.1 port {cim_tool.port_of(impostor)} is not good for the CAs in {file} (")
    assert [(s["name"], s["code"]) for s in account["steps"]] == [("preflight", 6)]
    shown = account["bmc"]["certificate"]
    assert shown["sha256"].replace(":", "").lower() == impostor.ready["redfish"]["sha256"]
    assert shown["verified"] is False


WAYS = ["CA file", "fingerprint", "first use"]


def trusted_by(way, bmc):
    return {"CA file": ["--ca-file", bmc.ready["redfish"]["certificate"]],
            "fingerprint": ["--fingerprint", bmc.ready["redfish"]["sha256"]],  # one for all services
            "first use": []}[way]


@pytest.mark.parametrize("way", WAYS)
def test_an_impostor_that_takes_over_after_the_preflight_gets_no_password(start_bmc, way):
    slow = {"cim": {"answers": {"EnumerateInstances": [{}, {"delay": 0.6}]}}}
    bmc, impostor = start_bmc(slow), start_bmc()
    relay = odd_servers.Relay(cim_tool.port_of(bmc))
    arguments = cim_tool.collect(bmc, "tftp://127.0.0.1/x", *trusted_by(way, bmc))
    arguments[arguments.index("--port") + 1] = str(relay.port)
    running = tool.Running(arguments, password=bmc.password)
    cim_tool.wait_for(bmc, "EnumerateInstances", 2)
    relay.target = cim_tool.port_of(impostor)  # for connections from now on; the open one gets its answer
    ended = running.end()
    relay.stop()
    assert cim_tool.requests(impostor) == []
    assert ended.code == 3
    assert (f"The certificate of 127.0.0.1 port {relay.port} was in order at the beginning and is "
            "not any more") in ended.err


@pytest.mark.parametrize("way", WAYS)
def test_an_impostor_that_takes_over_while_the_bmc_exports_gets_no_password(start_bmc, way):
    """The BMC closes the connection after each export: the library opens another, with the password."""
    bmc = start_bmc({"cim": {"export": {"upload": False}, "answers": {
        "ExportData": [{"delay": 1, "close": "after", "headers": {"Connection": "close"}, "repeat": True}]}}})
    impostor = start_bmc()
    relay = odd_servers.Relay(cim_tool.port_of(bmc))
    arguments = cim_tool.collect(bmc, "tftp://127.0.0.1/x", "--json", *trusted_by(way, bmc))
    arguments[arguments.index("--port") + 1] = str(relay.port)
    running = tool.Running(arguments, password=bmc.password)
    cim_tool.wait_for(bmc, "ExportData")
    relay.target = cim_tool.port_of(impostor)
    ended = running.end()
    relay.stop()
    assert cim_tool.requests(impostor) == []
    assert len(cim_tool.requests(bmc, "ExportData")) == 1
    assert ended.code == 3, ended.err
    assert ended.json["reason"].startswith(
        f"The certificate of 127.0.0.1 port {relay.port} was in order at the beginning and is not any more")


def test_a_certificate_is_remembered_for_its_port_and_another_one_refused(bmc, tmp_path):
    def check():
        return tool.run([*cim_tool.check(bmc), "--state-dir", str(tmp_path), "--json"], password=bmc.password)

    first = check()
    assert first.code == 0, first.err
    assert first.json["bmc"]["certificate"]["trust"] == "first-use"
    assert check().json["bmc"]["certificate"]["trust"] == "known"
    known = tmp_path / "known_bmcs"
    text = known.read_text(encoding="utf-8")
    assert f"127.0.0.1:{cim_tool.port_of(bmc)} SHA256:" in text
    known.write_text(re.sub("SHA256:..", "SHA256:00", text).replace("SHA256:00", "SHA256:FF"), encoding="utf-8")
    asked = len(cim_tool.requests(bmc))
    refused = check()
    assert refused.code == 3 and refused.json["outcome"] == "untrusted"
    assert "is not the one that is known" in refused.json["reason"]
    assert len(cim_tool.requests(bmc)) == asked


def test_plain_http_has_no_certificate_to_remember(bmc, tmp_path):
    ended = tool.run([*cim_tool.check(bmc, plain=True), "--state-dir", str(tmp_path / "state")], password=bmc.password)
    assert ended.code == 0, ended.err
    assert not (tmp_path / "state").exists()


def test_a_wrong_password_is_tried_once(bmc):
    """Accounts get locked."""
    assert tool.run(cim_tool.check(bmc), password="wrong").code == 3
    assert len([r for r in cim_tool.requests(bmc) if "Authorization" in r["headers"]]) == 1


@pytest.mark.parametrize("password", ["plain", "Grüße é", 'quote " and < & >', "x" * 3000])
def test_every_password_goes_the_librarys_way_through_preflight_and_library(start_bmc, password):
    bmc = start_bmc({"password": password, "cim": {"export": {"upload": False}}})
    ended = tool.run(cim_tool.collect(bmc, "tftp://127.0.0.1/x"), password=bmc.password)
    assert ended.code == 0, ended.err
    sent = {r["headers"].get("Authorization") for r in cim_tool.requests(bmc)}
    assert len(sent - {None}) == 1, "preflight and library send the same bytes"


def test_the_environments_proxies_do_not_hold(bmc):
    """The library knows none for CIM, so the preflight uses none either."""
    dead = {name: f"http://127.0.0.1:{tool.free_port()}" for name in ("http_proxy", "https_proxy", "ALL_PROXY")}
    assert tool.run(cim_tool.check(bmc), password=bmc.password, environment=dead).code == 0


# --- secrets ----------------------------------------------------------------------------------


def test_no_password_stands_anywhere_while_the_tool_runs(start_bmc, store, tmp_path):
    bmc = start_bmc({"cim": {"export": {"seconds": 1}}})
    log = tmp_path / "log"
    running = tool.Running(
        cim_tool.collect(bmc, store.uri("in/"), *store.account(), "--log-file", str(log), "--json"),
        password=bmc.password, environment=store.secrets())
    cim_tool.wait_for(bmc, "ExportData")
    seen = running._read("cmdline") + running.environ()
    ended = running.end()
    assert ended.code == 0, ended.err
    text = log.read_text()
    for secret in (bmc.password, store.password):
        for place in (seen, ended.out, ended.err, text):
            assert secret not in place
    assert "Connecting to admin:**********@127.0.0.1:" in text


def test_a_password_that_the_bmc_sends_back_is_masked(start_bmc, store):
    echo = {"error": {"code": 1, "description": f"word {store.password} for correct-horse"}, "repeat": True}
    bmc = start_bmc({"password": "correct-horse", "cim": {"answers": {"ExportData": [echo]}}})
    ended = export(bmc, store, "--json")
    assert ended.code == 4
    assert "correct-horse" not in ended.out + ended.err and store.password not in ended.err
    assert "(word ********** for **********)" in ended.json["reason"]


# --- interruption -----------------------------------------------------------------------------

HANG = [{"hang": True, "repeat": True}]
STEPS = {
    "preflight": ({"EnumerateInstances ZOR_FFDCService": HANG}, "EnumerateInstances", 2),
    "objects": ({"EnumerateInstances ZOR_FFDCService": [{}, *HANG]}, "EnumerateInstances", 4),
    "export": ({"ExportData": HANG}, "ExportData", 1),
    "second export": ({"ExportData": [{}, *HANG]}, "ExportData", 2),
}


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP], ids=lambda n: n.name)
@pytest.mark.parametrize("step", sorted(STEPS))
def test_interrupted_in_every_step(start_bmc, store, step, number):
    answers, method, count = STEPS[step]
    bmc = start_bmc({"cim": {"answers": answers}})
    running = tool.Running(
        cim_tool.collect(bmc, store.uri("in/"), *store.account(), "--json"), password=bmc.password,
        environment=store.secrets())
    cim_tool.wait_for(bmc, method, count)
    time.sleep(0.3)  # into the blocking call
    ended = running.interrupt(number)
    assert ended.code == 130, ended.err
    assert ended.seconds < BOUND * tool.SLOWNESS
    account = ended.json
    assert (account["outcome"], account["exit_code"], account["export_uri"]) == ("interrupted", 130, None)
    if step == "second export":
        assert [one["outcome"] for one in account["objects"]] == ["exported", "not-ended"]
    goes_on = " A BMC that has begun to gather goes on." if "export" in step else ""
    assert ended.err.endswith(f"kemffdc: Interrupted.{goes_on} [exit code 130]\n")


def test_ctrl_c_while_the_bmc_gathers_takes_the_live_line_off_the_terminal(start_bmc, store):
    bmc = start_bmc({"cim": {"answers": {"ExportData": HANG}}})
    arguments = [
        a for a in cim_tool.collect(bmc, store.uri("in/"), *store.account()) if a not in ("--password-file", "-")]
    terminal = tool.Terminal(arguments, {"KEMFFDC_PASSWORD": bmc.password, **store.secrets()})
    terminal.read(r"\d:\d\d  export: object 1 of 3 \(type 1\): the BMC gathers")
    before = time.monotonic()
    terminal.type("\x03")
    assert terminal.end() == 130
    assert time.monotonic() - before < BOUND * tool.SLOWNESS
    last = terminal.text.rpartition("\r\x1b[K")[2]
    assert last == "kemffdc: Interrupted. A BMC that has begun to gather goes on. [exit code 130]\r\n"


# --- the faults' document ---------------------------------------------------------------------


def test_every_table_of_faults_has_its_tests():
    readers = {
        re.search(r'^HEADING = "(.*)"$', file.read_text(encoding="utf-8"), re.MULTILINE)
        for file in (tool.ROOT / "tests" / "cli").rglob("test_*.py")}
    assert sorted(found[1] for found in readers if found) == sorted(faults_table.headings())
