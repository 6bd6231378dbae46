# SPDX-License-Identifier: Apache-2.0
"""The standard's action, LogService.CollectDiagnosticData, in every form of its answer."""

import hashlib
import json
import pathlib
import re

import pytest

import tool

DUMP = "/redfish/v1/Managers/1/LogServices/Dump"
CRASH = "/redfish/v1/Systems/1/LogServices/Crash"
COLLECT = "POST */LogService.CollectDiagnosticData"
SESSIONS = "/redfish/v1/SessionService/Sessions"
STATES = ["New", "Running", "Completed"]


def scenario(services=None, states=STATES, answers=None, download=None, **diagnostics):
    redfish = {"export_action": "missing", "task_states": list(states),
               "diagnostics": {"services": services or [{}], "retry_after": 0, **diagnostics}}
    if answers:
        redfish["answers"] = answers
    if download:
        redfish["download"] = download
    return {"redfish": redfish}


def collect(bmc, output, *arguments, **options):
    return tool.run(tool.collect(bmc, output, "--json", *arguments), password=bmc.password, **options)


def asked(bmc):
    """The bodies of the action's requests."""
    return [json.loads(r["body"]) for r in bmc.requests("POST") if "CollectDiagnosticData" in r["path"]]


def data_of(bmc, number=1, kind="tar.gz", log="Dump"):
    return (pathlib.Path(bmc.ready["requests"]).parent / "diagnostics" / f"{log}-{number}.{kind}").read_bytes()


def arrived(ended):
    return pathlib.Path(ended.json["path"]).read_bytes()


# --- forms of the answer --------------------------------------------------------------------------


FORMS = [(answer, result) for answer in ("monitor", "task", "both") for result in ("entry", "created", "none", "task")]


@pytest.mark.parametrize("answer, result", [*FORMS, ("entry", "entry"), ("created", "entry"), ("none", "entry")])
def test_each_form_of_answer_leads_to_the_data(start_bmc, tmp_path, answer, result):
    bmc = start_bmc(scenario(answer=answer, result=result))
    ended = collect(bmc, tmp_path)
    assert ended.code == 0, ended.err
    account = ended.json
    assert (account["outcome"], account["operation"], account["log_kind"]) == ("downloaded", "standard", "full")
    assert arrived(ended) == data_of(bmc)
    assert re.fullmatch(r"127\.0\.0\.1_\d{8}T\d{6}Z_Dump_1\.tar\.gz", pathlib.Path(account["path"]).name)
    assert account["remote_path"] == DUMP + "/Entries/1/attachment"
    assert [step["name"] for step in account["steps"]] == ["preflight", "export", "gather", "download", "verify"]
    assert asked(bmc) == [{"DiagnosticDataType": "Manager"}]
    (one,) = account["collections"]
    assert (one["log_service"], one["type"], one["entry"], one["outcome"]) == (
        DUMP, "Manager", DUMP + "/Entries/1", "ok")
    assert tool.archives_in(tmp_path) == [pathlib.Path(account["path"]).name]


@pytest.mark.parametrize("named_by", ["created-resources", "header", "message", "nothing"])
def test_a_task_names_its_entry_or_the_log_tells(start_bmc, tmp_path, named_by):
    bmc = start_bmc(scenario([{"entries": 30}], answer="both", result="task", named_by=named_by))
    ended = collect(bmc, tmp_path)
    assert ended.code == 0, ended.err
    assert arrived(ended) == data_of(bmc, 31)


def test_an_entry_that_appears_later_is_waited_for(start_bmc, tmp_path):
    bmc = start_bmc(scenario([{"entries": 3}], answer="none", appears_after=2))
    ended = tool.run([a if a != "0" else "1" for a in tool.collect(bmc, tmp_path, "--json")], password=bmc.password)
    assert ended.code == 0, ended.err
    assert arrived(ended) == data_of(bmc, 4)


def test_the_session_is_the_runs_own_and_ends(start_bmc, tmp_path):
    bmc = start_bmc(scenario())
    ended = collect(bmc, tmp_path)
    assert ended.code == 0, ended.err
    (session,) = [r["path"] for r in bmc.requests("DELETE")]
    assert session.startswith(SESSIONS + "/")
    after = [r for r in bmc.requests() if r["path"].startswith("/redfish/v1/TaskService")]
    assert after and all("X-Auth-Token" in r["headers"] and "Authorization" not in r["headers"] for r in after)
    assert all(r["path"] == session for r in bmc.requests("DELETE")), "nothing else is deleted"


# --- which data -----------------------------------------------------------------------------------


TWO = [{"types": ["OS", "Manager", "OEM"], "oem_types": ["Everything", "Registers"]},
       {"below": "Systems", "id": "Crash", "types": ["OS", "CPER"], "action_info": True}]


@pytest.mark.parametrize("arguments, service, body", [
    ([], DUMP, {"DiagnosticDataType": "OEM", "OEMDiagnosticDataType": "Everything"}),
    (["--log", "mini"], DUMP, {"DiagnosticDataType": "Manager"}),
    (["--diagnostic-type", "OS"], DUMP, {"DiagnosticDataType": "OS"}),
    (["--diagnostic-type", "CPER"], CRASH, {"DiagnosticDataType": "CPER"}),
    (["--oem-type", "Registers"], DUMP, {"DiagnosticDataType": "OEM", "OEMDiagnosticDataType": "Registers"}),
    (["--log-service", CRASH + "/"], CRASH, {"DiagnosticDataType": "OS"}),
])
def test_what_is_asked_for(start_bmc, tmp_path, arguments, service, body):
    bmc = start_bmc(scenario(TWO))
    ended = collect(bmc, tmp_path, *arguments)
    assert ended.code == 0, ended.err
    assert asked(bmc) == [body]
    assert ended.json["collections"][0]["log_service"] == service


def test_naming_a_type_asks_for_the_standards_action(start_bmc, tmp_path):
    with_export = scenario(TWO)
    del with_export["redfish"]["export_action"]
    bmc = start_bmc(with_export)
    ended = collect(bmc, tmp_path, "--diagnostic-type", "OS")
    assert (ended.code, ended.json["operation"]) == (0, "standard"), ended.err
    assert collect(bmc, tmp_path).json["operation"] == "oem", "what the BMC makes itself comes first"


@pytest.mark.parametrize("arguments, words", [
    (["--operation", "oem", "--oem-type", "X"], "--oem-type goes with --operation standard."),
    (["--operation", "tree", "--all-types"], "--all-types goes with --operation standard."),
    (["--diagnostic-type", "OS", "--oem-type", "X"], "--oem-type goes with --diagnostic-type OEM alone."),
])
def test_options_that_do_not_fit_together(bmc, tmp_path, arguments, words):
    ended = collect(bmc, tmp_path, *arguments)
    assert ended.code == 2 and words in ended.err


def test_check_lists_what_there_is(start_bmc):
    bmc = start_bmc(scenario(TWO))
    ended = tool.run(tool.check(bmc), password=bmc.password)
    assert ended.code == 0, ended.err
    assert f"Log service:     {DUMP}: OS, Manager, OEM (Everything, Registers)\n" in ended.out
    assert f"Log service:     {CRASH}: OS, CPER\n" in ended.out
    assert bmc.requests("POST") == []
    ended = tool.run(tool.check(bmc, "--json"), password=bmc.password)
    assert ended.json["log_services"][1] == {"path": CRASH, "types": ["OS", "CPER"], "oem_types": []}


def test_all_types_come_one_after_the_other_into_a_folder(start_bmc, tmp_path):
    bmc = start_bmc(scenario(TWO))
    ended = collect(bmc, tmp_path, "--all-types")
    assert ended.code == 0, ended.err
    assert [one["outcome"] for one in ended.json["collections"]] == ["ok"] * 6
    assert len(asked(bmc)) == 6
    for one in ended.json["collections"]:
        path = pathlib.Path(one["path"])
        assert str(path.parent) == ended.json["path"]
        assert hashlib.sha256(path.read_bytes()).hexdigest() == one["sha256"]
    assert ended.json["size"] == sum(one["size"] for one in ended.json["collections"])


def test_logs_of_one_name_do_not_take_each_others_place(start_bmc, tmp_path):
    bmc = start_bmc(scenario([{"below": below} for below in ("Managers", "Systems", "Chassis")]))
    ended = collect(bmc, tmp_path, "--all-types")
    assert ended.code == 0, ended.err
    names = sorted(path.name for path in pathlib.Path(ended.json["path"]).iterdir())
    assert names == ["1_Manager_Dump_1.tar.gz", "2_Manager_Dump_1.tar.gz", "3_Manager_Dump_1.tar.gz"]


def test_one_type_that_fails_leaves_the_others(start_bmc, tmp_path):
    bmc = start_bmc(scenario(TWO, answers={COLLECT: [{}, {"status": 500}]}))
    ended = collect(bmc, tmp_path, "--all-types")
    assert ended.code == 9
    assert sorted(one["outcome"] for one in ended.json["collections"]) == ["export-refused"] + ["ok"] * 5
    assert "Not all types came whole." in ended.json["reason"]
    assert len(list(pathlib.Path(ended.json["path"]).iterdir())) == 5


def test_what_has_come_stays_when_the_bmc_goes_away(start_bmc, tmp_path):
    bmc = start_bmc(scenario(TWO, answers={COLLECT: [{}, {}, {"cut_after": 0, "status": 200, "body": "x"}]}))
    ended = collect(bmc, tmp_path, "--all-types")
    assert ended.code == 9
    assert [one["outcome"] for one in ended.json["collections"]] == ["ok", "ok", "connection-lost"]
    assert len(list(pathlib.Path(ended.json["path"]).iterdir())) == 2


def test_where_nothing_comes_nothing_is_left(start_bmc, tmp_path):
    bmc = start_bmc(scenario(TWO, answers={COLLECT: [{"status": 403, "repeat": True}]}))
    ended = collect(bmc, tmp_path, "--all-types")
    assert (ended.code, ended.json["outcome"]) == (4, "not-permitted")
    assert tool.files_in(tmp_path) == []


# --- the data -------------------------------------------------------------------------------------


@pytest.mark.parametrize("kind, end", [
    ("tar.gz", ".tar.gz"), ("zip", ".zip"), ("tar.xz", ".tar.xz"), ("bin", ".bin"), ("text", ".txt")])
def test_data_is_named_as_what_it_is(start_bmc, tmp_path, kind, end):
    bmc = start_bmc(scenario(data={"kind": kind, "digest": True}))
    ended = collect(bmc, tmp_path)
    assert ended.code == 0, ended.err
    assert ended.json["path"].endswith("_Dump_1" + end)
    assert ended.json["damage"] is None
    assert arrived(ended) == data_of(bmc, 1, kind)


def test_the_bmcs_own_name_stays_but_for_a_wrong_end(start_bmc, tmp_path):
    bmc = start_bmc(scenario(data={"kind": "zip", "name": "service-7.tar.gz"}))
    ended = collect(bmc, tmp_path)
    assert ended.code == 0, ended.err
    assert ended.json["path"].endswith("_service-7.zip")


def test_a_data_uri_may_be_absolute(start_bmc, tmp_path):
    bmc = start_bmc(scenario(), "--redfish-port", str(port := tool.free_port()))
    uri = f"https://127.0.0.1:{port}{DUMP}/Entries/1/attachment"
    bmc.stop()
    bmc = start_bmc(scenario(entry={"AdditionalDataURI": uri}), "--redfish-port", str(port))
    ended = collect(bmc, tmp_path)
    assert ended.code == 0, ended.err
    assert arrived(ended) == data_of(bmc)


QUERY = "id=7&file=/dumps/core.bin&ticket=tear-here"


def test_data_at_an_address_with_a_query_is_asked_for_with_it_and_the_query_is_told_nowhere(start_bmc, tmp_path):
    bmc = start_bmc(scenario(data={"query": QUERY}))
    log = tmp_path / "log"
    ended = collect(bmc, tmp_path / "out", "--log-file", str(log))
    assert ended.code == 0, ended.err
    assert arrived(ended) == data_of(bmc)
    assert pathlib.Path(ended.json["path"]).name.endswith("_Dump_1.tar.gz")
    assert ended.json["remote_path"] == DUMP + "/Entries/1/attachment"
    fetched = [r for r in bmc.requests() if r["path"].endswith("/attachment")]
    assert {r["method"] for r in fetched} == {"HEAD", "GET"}
    assert {r["query"] for r in fetched} == {QUERY}
    for text in (ended.out, ended.err, log.read_text(encoding="utf-8"), ended.command_line):
        assert "tear-here" not in text


def test_a_wrong_digest_of_the_answer_is_told(start_bmc, tmp_path):
    bmc = start_bmc(scenario(answers={"HEAD */attachment": [
        {"headers": {"Repr-Digest": "sha-256=:" + "A" * 43 + "=:"}}]}))
    ended = collect(bmc, tmp_path)
    assert ended.code == 9 and "has another SHA-256 than the BMC announces" in ended.json["damage"]


def test_nothing_is_deleted_unless_wanted(start_bmc, tmp_path):
    bmc = start_bmc(scenario())
    assert collect(bmc, tmp_path).code == 0
    assert not [r for r in bmc.requests("DELETE") if "LogServices" in r["path"]]
    ended = collect(bmc, tmp_path, "--delete-after")
    assert ended.code == 0, ended.err
    assert [r["path"] for r in bmc.requests("DELETE") if "LogServices" in r["path"]] == [DUMP + "/Entries/2"]


@pytest.mark.parametrize("arguments", [[], ["--all-types"]])
def test_what_is_not_as_announced_is_never_deleted(start_bmc, tmp_path, arguments):
    bmc = start_bmc(scenario(TWO, entry={"AdditionalDataSizeBytes": 7}))
    ended = collect(bmc, tmp_path, "--delete-after", *arguments)
    assert ended.code == 9
    assert not [r for r in bmc.requests("DELETE") if "LogServices" in r["path"]]


# --- going on with a run --------------------------------------------------------------------------


def test_an_unfinished_task_is_gone_on_with(start_bmc, tmp_path, state):
    bmc = start_bmc(scenario(states=["Running"] * 12 + ["Completed"], result="task"))
    first = collect(bmc, tmp_path / "out", "--tries", "2")
    assert first.code == 6 and "kemffdc resume 1" in first.json["reason"], first.err
    ended = tool.run(["resume", "1", "--password-file", "-", "--interval", "0", "--json"], password=bmc.password)
    assert ended.code == 0, ended.err
    assert (ended.json["operation"], ended.json["log_kind"]) == ("standard", "full")
    assert arrived(ended) == data_of(bmc)
    assert len(asked(bmc)) == 1


@pytest.mark.parametrize("query", ["", QUERY])
def test_of_a_download_that_was_cut_the_rest_is_fetched(start_bmc, tmp_path, state, query):
    bmc = start_bmc(scenario(data={"kind": "bin", "size": 3000000, **({"query": query} if query else {})}, download={"ranges": True}, answers={
        "GET */attachment": [{"cut_after": 1000000}]}))
    first = collect(bmc, tmp_path / "out")
    assert first.code == 7 and "kemffdc resume 1" in first.json["reason"], first.err
    ended = tool.run(["resume", "1", "--password-file", "-", "--interval", "0", "--json"], password=bmc.password)
    assert ended.code == 0, ended.err
    assert arrived(ended) == data_of(bmc, 1, "bin")
    ranges = [r["headers"].get("Range") for r in bmc.requests("GET") if r["path"].endswith("attachment")]
    assert ranges[0] is None and re.fullmatch(r"bytes=\d{5,}-", ranges[1]), ranges


def test_a_task_that_is_forgotten_meanwhile_leaves_its_entry(start_bmc, tmp_path, state):
    states = ["Running"] * 6 + [{"state": "Running", "gone": True}]
    bmc = start_bmc(scenario([{"entries": 40, "page": 7}], states=states))
    first = collect(bmc, tmp_path / "out", "--tries", "2")
    assert first.code == 6, first.err
    ended = tool.run(["resume", "1", "--password-file", "-", "--interval", "0", "--json"], password=bmc.password)
    assert ended.code == 0, ended.err
    assert arrived(ended) == data_of(bmc, 41)


def test_a_task_that_was_not_known_yet_is_found_and_nothing_is_posted_again(start_bmc, tmp_path, state):
    bmc = start_bmc(scenario(states=["Running"] * 12 + ["Completed"], answers={COLLECT: [{"delay": 1.0}]}))
    running = tool.Running(tool.collect(bmc, tmp_path / "out"), password=bmc.password)
    bmc.wait_for("CollectDiagnosticData")
    running.process.kill()
    running.end(20)
    ended = tool.run(["resume", "1", "--password-file", "-", "--interval", "0", "--json"], password=bmc.password)
    assert ended.code == 0, ended.err
    assert arrived(ended) == data_of(bmc)
    assert len(asked(bmc)) == 1


def test_of_several_types_nothing_can_be_gone_on_with(start_bmc, tmp_path, state):
    bmc = start_bmc(scenario(TWO, states=["Running"] * 12 + ["Completed"]))
    first = collect(bmc, tmp_path / "out", "--all-types", "--tries", "2")
    assert first.code == 6 and "kemffdc resume" not in first.err, first.err
    ended = tool.run(["resume", "1", "--password-file", "-"], password=bmc.password)
    assert ended.code == 2
    assert "Run 1 was to bring several types of data, one after the other: it cannot be gone on with." in ended.err


def test_no_secret_in_any_place(start_bmc, tmp_path):
    bmc = start_bmc(scenario())
    log = tmp_path / "log"
    ended = tool.run(tool.collect(bmc, tmp_path / "out", "--log-file", str(log), "--events"), password=bmc.password)
    assert ended.code == 0, ended.err
    assert bmc.tokens()
    texts = ended.out + ended.err + ended.command_line + log.read_text(encoding="utf-8")
    for secret in {bmc.password} | bmc.tokens():
        assert secret not in texts


# --- patience and signals -------------------------------------------------------------------------


def seconds_of(ended, step):
    return next(one["seconds"] for one in ended.json["steps"] if one["name"] == step)


def test_a_retry_after_is_kept_to(start_bmc, tmp_path):
    busy = {"status": 503, "headers": {"Retry-After": "2"}}
    bmc = start_bmc(scenario(answers={COLLECT: [busy], "GET */Tasks/1/Monitor": [busy]}))
    ended = collect(bmc, tmp_path)
    assert ended.code == 0, ended.err
    assert seconds_of(ended, "export") >= 2 and seconds_of(ended, "gather") >= 2


def test_one_that_is_too_long_is_not_waited_for(start_bmc, tmp_path):
    bmc = start_bmc(scenario(answers={COLLECT: [{"status": 503, "headers": {"Retry-After": "3000"}}]}))
    ended = collect(bmc, tmp_path)
    assert (ended.code, ended.json["outcome"], ended.json["retryable"]) == (4, "busy", True)
    assert ended.seconds < 20 * tool.SLOWNESS


@pytest.mark.parametrize("moment", ["/Monitor", "/attachment"])
def test_a_signal_leaves_no_session_and_nothing_half_written(start_bmc, tmp_path, moment):
    bmc = start_bmc(scenario(states=["Running"] * 9999 if moment == "/Monitor" else STATES, answers={
        "GET */attachment": [{"hang_after": 100}]}, retry_after=1))
    running = tool.Running(tool.collect(bmc, tmp_path / "out"), password=bmc.password)
    bmc.wait_for(moment)
    stopped = running.interrupt()
    assert stopped.code == 130, stopped.err
    assert [r["path"].startswith(SESSIONS) for r in bmc.requests("DELETE")] == [True]
    assert not (tmp_path / "out").exists() or tool.files_in(tmp_path / "out") == []
    assert "kemffdc resume 1" in stopped.err
