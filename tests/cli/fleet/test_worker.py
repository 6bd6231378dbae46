# SPDX-License-Identifier: Apache-2.0
"""A worker: what it is told, what it tells, what it finds of earlier attempts, and how it ends."""

import hashlib
import json
import os
import signal
import subprocess
import sys
import tarfile
import time

import pytest

import tool
from worker import Fleet, Worker, collect, exports, is_alive

ALL = ["reached", "exporting", "gathering", "transferring"]
LONG = {"redfish": {"task_states": ["Running"] * 500, "task_step_seconds": 1}}


@pytest.fixture(name="fleet")
def _fleet(state, tmp_path):
    return Fleet(state, tmp_path)


def start(fleet, bmc, *arguments, **more):
    return Worker(collect(bmc, *arguments), fleet, bmc.password, **more)


def check_whole(fleet, bmc):
    """One archive, the BMC's own, with its record, and a journal that knows it."""
    (archive,) = fleet.archives()
    content = archive.read_bytes()
    assert hashlib.sha256(content).hexdigest() == bmc.ready["archive"]["sha256"]
    assert archive.with_name(archive.name + ".json").is_file()
    host = fleet.host()
    assert (host["state"], host["exit_code"], host["outcome"]) == ("done", 0, "downloaded")
    assert (host["archive"], host["sha256"], host["size"]) == (
        str(archive), bmc.ready["archive"]["sha256"], len(content))
    assert fleet.is_sound()


def test_it_tells_each_state_once_it_stands_in_the_journal(fleet, start_bmc):
    bmc = start_bmc()
    worker = start(fleet, bmc)
    for state in ALL:
        worker.reach(state)
        assert fleet.states()[:len(worker.state_events())] == worker.state_events()
    result = worker.end()
    assert result["outcome"] == "downloaded"
    assert worker.state_events() == ALL
    assert fleet.states() == [*ALL, "done"]
    (run,) = fleet.runs()
    assert (fleet.host()["run"], fleet.host()["attempts"]) == (run["id"], 1)
    assert "resume" not in (result["reason"] or "")
    check_whole(fleet, bmc)


def test_a_download_waits_for_its_turn(fleet, start_bmc):
    bmc = start_bmc()
    worker = start(fleet, bmc, gate=True)
    worker.wait_for("turn")
    assert fleet.host()["state"] == "waiting"
    worker.say("something else")
    time.sleep(0.7)
    assert not [r for r in bmc.requests("GET") if "/download/" in r["path"]]
    worker.say("go")
    assert worker.end()["outcome"] == "downloaded"
    assert worker.state_events() == ["reached", "exporting", "gathering", "waiting", "transferring"]


def test_the_turn_does_not_count_against_the_deadline(fleet, start_bmc):
    worker = start(fleet, start_bmc(), "--deadline", f"{int(4 * tool.SLOWNESS)}s", gate=True)
    worker.wait_for("turn")
    time.sleep(5 * tool.SLOWNESS)
    worker.say("go")
    assert worker.end()["outcome"] == "downloaded"


def test_a_check_reaches_the_bmc_and_is_written_down(fleet, start_bmc):
    bmc = start_bmc()
    arguments = ["check", *collect(bmc)[1:]]
    del arguments[arguments.index("--interval"):]
    worker = Worker(arguments, fleet, bmc.password)
    assert worker.end()["outcome"] == "checked"
    assert fleet.states() == ["reached", "done"]
    assert fleet.runs()[0]["serial"] == bmc.ready["machine"]["serial"]


def test_a_failure_is_the_hosts_with_its_reason(fleet, start_bmc):
    worker = Worker(collect(start_bmc()), fleet, "wrong")
    result = worker.end()
    assert (result["outcome"], result["retryable"]) == ("login-refused", False)
    host = fleet.host()
    assert (host["state"], host["outcome"], host["reason"]) == ("failed", "login-refused", result["reason"])
    assert fleet.states() == ["failed"]


def test_without_a_password_nobody_is_asked(fleet, start_bmc):
    bmc = start_bmc()
    assert Worker(collect(bmc), fleet, None).end()["outcome"] == "no-password"
    assert not bmc.requests()
    assert (fleet.host()["state"], fleet.host()["outcome"], fleet.host()["attempts"]) == ("failed", "no-password", 1)


# --- what is no assignment ------------------------------------------------------------------------


@pytest.mark.parametrize("line, words", [
    ("", "the line is no JSON object"),
    ("[]", "the line is no JSON object"),
    ('{"fleet":1,"number":1}', "arguments is not a list of texts"),
    ('{"arguments":[],"fleet":1,"number":1}', "arguments is not a list of texts"),
    ('{"arguments":["collect",1],"fleet":1,"number":1}', "arguments is not a list of texts"),
    ('{"arguments":["collect"],"number":1}', "fleet is not a number from 1"),
    ('{"arguments":["collect"],"fleet":1,"number":0}', "number is not a number from 1"),
    ('{"arguments":["collect"],"fleet":1,"number":99999999999}', "number is not a number from 1"),
    ('{"arguments":["collect"],"fleet":1,"number":1,"password":1}', "password is not a text"),
    ('{"arguments":["collect"],"fleet":1,"number":1,"gate":"yes"}', "gate is not true or false"),
    ('{"arguments":["collect"],"fleet":1,"number":1,"colour":"red"}', "a member is not known"),
    ('{"arguments":["verify"],"fleet":1,"number":1}', "the first argument is no collect or check"),
    ('{"arguments":["collect","--colour"],"fleet":1,"number":1}', "Unknown option: --colour"),
    ('{"arguments":["collect","--via","redfish"],"fleet":1,"number":1}', "HOST"),
    ('{"password":"S3cretWord","arguments":["' + "x" * 70000 + '"]}', "longer than 64 KiB"),
])
def test_what_is_no_assignment_is_told(fleet, line, words):
    worker = Worker(None, fleet, None)
    try:
        worker.say(line)
    except BrokenPipeError:
        pass
    result = worker.end()
    assert (result["outcome"], result["exit_code"]) == ("usage", 2)
    assert words in result["reason"] and "S3cretWord" not in json.dumps(result)


@pytest.mark.parametrize("arguments", [["collect", "--colour"], ["collect", "--via", "cim", "bmc"], ["verify"],
                                       ["check", "--help"]])
def test_arguments_that_cannot_be_used_end_the_host_too(fleet, arguments):
    worker = Worker(arguments, fleet, "x", output=False)
    result = worker.end()
    host = fleet.host()
    assert (host["state"], host["exit_code"], host["outcome"], host["reason"]) == ("failed", 2, "usage", result["reason"])


def test_a_bmc_that_somebody_works_on_is_told(fleet, start_bmc, tmp_path):
    bmc = start_bmc(LONG)
    other = Fleet(fleet.database.parent, tmp_path / "other")
    first = start(fleet, bmc)
    first.reach("gathering")
    assert start(other, bmc).end()["outcome"] == "locked"
    assert (other.host()["state"], other.host()["outcome"]) == ("failed", "locked")
    first.kill()


def test_an_input_that_ends_at_once_is_told(fleet):
    worker = Worker(None, fleet, None)
    worker.process.stdin.close()
    assert "the input ended before its line did" in worker.end()["reason"]


def test_neither_files_nor_variables_are_read(fleet, start_bmc, tmp_path):
    bmc = start_bmc()
    (tmp_path / "kemffdc").mkdir()
    (tmp_path / "kemffdc" / "kemffdc.conf").write_text("nonsense\n", encoding="utf-8")
    prefix = ["env", f"XDG_CONFIG_HOME={tmp_path}", "KEMFFDC_USER=nobody", "KEMFFDC_PASSWORD=wrong"]
    assert start(fleet, bmc, prefix=prefix).end()["outcome"] == "downloaded"


def test_it_is_not_in_the_help():
    texts = [tool.run(arguments).out for arguments in (["--help"], ["help", "topics"])]
    assert not any("fleet-worker" in text for text in texts)


def test_no_secret_in_any_place(fleet, start_bmc):
    bmc = start_bmc()
    worker = start(fleet, bmc, gate=True)
    worker.wait_for("turn")
    process = worker.proc("cmdline") + worker.proc("environ")
    worker.say("go")
    worker.end()
    told = json.dumps(worker.lines) + worker.errors
    files = [fleet.database, fleet.database.with_name("history.db-wal"), *fleet.folder.glob("*.json")]
    stored = b"".join(path.read_bytes() for path in files if path.exists())
    for secret in {bmc.password} | bmc.tokens():
        assert secret not in told
        assert secret.encode() not in process + stored


# --- its conductor's death ------------------------------------------------------------------------


SECOND = 1.0 * tool.SLOWNESS


@pytest.mark.parametrize("gate, at", [(False, "gathering"), (True, "waiting")])
def test_it_ends_when_its_input_does(fleet, start_bmc, gate, at):
    bmc = start_bmc(LONG if at == "gathering" else None)
    worker = start(fleet, bmc, gate=gate)
    worker.reach(at)
    worker.process.stdin.close()
    begin = time.monotonic()
    result = worker.end()
    assert time.monotonic() - begin < SECOND
    assert result["outcome"] == "interrupted"
    assert (fleet.host()["state"], fleet.host()["outcome"]) == ("stopped", "interrupted")


PARENT = """
import os, subprocess, sys
worker = subprocess.Popen([sys.argv[1], "fleet-worker"], stdin=subprocess.PIPE, stdout=int(sys.argv[3]),
                          pass_fds=[int(sys.argv[3])])
worker.stdin.write(sys.argv[2].replace("CONDUCTOR", str(os.getpid())).encode() + b"\\n")
worker.stdin.flush()
os.set_inheritable(worker.stdin.fileno(), True)
others = os.fork()  # holds the pipe, as a careless sibling would
if others == 0:
    os.close(int(sys.argv[3]))
    os.execvp("sleep", ["sleep", "20"])
print(worker.pid, flush=True)
sys.stdin.read()
"""


def test_it_ends_when_its_conductor_is_killed_though_its_input_is_held(fleet, start_bmc):
    bmc = start_bmc(LONG)
    line = json.dumps({"arguments": [*collect(bmc), "--output", str(fleet.folder)], "password": bmc.password,
                       "fleet": fleet.number, "number": 1})
    line = line[:-1] + ', "conductor": CONDUCTOR}'
    reader, writer = os.pipe()
    parent = subprocess.Popen([sys.executable, "-c", PARENT, tool.TOOL, line, str(writer)], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, pass_fds=[writer], env=tool.run_environment(),
                              start_new_session=True)
    os.close(writer)
    try:
        worker = int(parent.stdout.readline())
        bmc.wait_for("/Tasks/1")
        parent.send_signal(signal.SIGKILL)
        parent.wait()
        begin = time.monotonic()
        while is_alive(worker):
            assert time.monotonic() - begin < SECOND
            time.sleep(0.01)
        with os.fdopen(reader) as told:
            assert '"outcome":"interrupted"' in told.read().splitlines()[-1]
    finally:
        os.killpg(parent.pid, signal.SIGKILL)


def test_it_does_not_begin_for_a_conductor_that_is_dead_already(fleet, start_bmc):
    bmc = start_bmc()
    worker = start(fleet, bmc, conductor=1)
    worker.close()
    assert worker.process.returncode == 130
    assert not bmc.requests()


# --- killed, and started again --------------------------------------------------------------------


GATHERING = {"redfish": {"task_states": ["New", "Starting", *["Running"] * 8, "Completed"], "task_step_seconds": 0.1,
                         "archive": {"size": 3000000}, "download": {"ranges": True},
                         "answers": {"GET /download/*": [{"rate": 3000000}]}}}


@pytest.mark.parametrize("at", ["reached", "exporting", "gathering", "waiting", "transferring"])
def test_killed_in_any_state_another_one_goes_on_and_nobody_exports_twice(fleet, start_bmc, at):
    bmc = start_bmc(GATHERING)
    worker = start(fleet, bmc, "--interval", "1", gate=at == "waiting")
    worker.reach(at)
    if at == "transferring":
        bmc.wait_for("/download/")
        time.sleep(0.3)
    worker.kill()
    assert not fleet.archives()
    order = ["reached", "exporting", "gathering", "waiting", "transferring"]
    assert order.index(fleet.host()["state"]) >= order.index(at), "it may have come further before it was killed"
    began = len(exports(bmc))

    assert start(fleet, bmc, "--interval", "1").end()["outcome"] == "downloaded"
    assert len(exports(bmc)) == 1 and began <= 1
    assert fleet.host()["attempts"] == 2
    check_whole(fleet, bmc)


def test_killed_while_the_request_is_on_its_way_the_task_is_adopted(fleet, start_bmc):
    bmc = start_bmc({"redfish": {**GATHERING["redfish"], "answers": {tool.EXPORT: [{"delay": 1.0}]}}})
    worker = start(fleet, bmc)
    bmc.wait_for("ExportFFDCData")
    worker.kill()
    assert fleet.runs()[0]["task"] is None
    result = start(fleet, bmc, "--interval", "1").end()
    assert result["outcome"] == "downloaded"
    assert "adopt" in [step["name"] for step in result["steps"]]
    assert len(exports(bmc)) == 1
    check_whole(fleet, bmc)


def test_killed_while_a_bmc_gathers_by_the_standards_action_another_one_goes_on(fleet, start_bmc):
    bmc = start_bmc({"redfish": {"export_action": "missing", "task_states": ["New", *["Running"] * 20, "Completed"],
                                 "task_step_seconds": 0.1, "diagnostics": {"services": [{}], "retry_after": 0}}})
    worker = start(fleet, bmc, "--interval", "1", gate=True)
    worker.reach("gathering")
    worker.kill()
    assert fleet.runs()[0]["operation"] == "standard"
    worker = start(fleet, bmc, "--interval", "1", gate=True)
    worker.wait_for("turn")
    worker.say("go")
    assert worker.end()["outcome"] == "downloaded"
    assert len([r for r in bmc.requests("POST") if "CollectDiagnosticData" in r["path"]]) == 1
    assert len(fleet.archives()) == 1


STANDARD = {"export_action": "missing", "task_states": ["New", *["Running"] * 20, "Completed"], "task_step_seconds": 0.1,
            "diagnostics": {"services": [{"entries": 3}]}}


def collections(bmc):
    return [r for r in bmc.requests("POST") if "CollectDiagnosticData" in r["path"]]


def test_killed_while_the_standards_request_is_on_its_way_the_task_is_adopted(fleet, start_bmc):
    bmc = start_bmc({"redfish": {**STANDARD, "answers": {"POST *CollectDiagnosticData": [{"delay": 1.0}]}}})
    worker = start(fleet, bmc, "--interval", "1")
    bmc.wait_for("CollectDiagnosticData")
    worker.kill()
    assert fleet.runs()[0]["task"] is None
    result = start(fleet, bmc, "--interval", "1").end()
    assert result["outcome"] == "downloaded", result["reason"]
    assert next(step for step in result["steps"] if step["name"] == "adopt")["detail"].endswith("/Tasks/1")
    assert len(collections(bmc)) == 1
    assert len(fleet.archives()) == 1


def test_killed_before_the_standards_request_it_is_asked_once_more(fleet, start_bmc):
    bmc = start_bmc({"redfish": {**STANDARD, "answers": {"GET */Dump/Entries": [{"delay": 2.0}]}}})
    worker = start(fleet, bmc, "--interval", "0")
    bmc.wait_for("/Dump/Entries")
    worker.kill()
    assert fleet.host()["state"] == "exporting" and not collections(bmc)
    result = start(fleet, bmc, "--interval", "0").end()
    assert result["outcome"] == "downloaded", result["reason"]
    assert any("it was asked once more" in note for note in result["bmc"]["notes"]), result["bmc"]["notes"]
    assert len(collections(bmc)) == 1


def test_killed_among_several_types_all_are_gathered_again(fleet, start_bmc):
    diagnostics = {"services": [{"types": ["Manager", "OS"]}]}
    bmc = start_bmc({"redfish": {**STANDARD, "diagnostics": diagnostics}})
    worker = start(fleet, bmc, "--interval", "1", "--all-types")
    worker.reach("gathering")
    worker.kill()
    time.sleep(2.5 * tool.SLOWNESS / 4)  # the first of them ends: one at a time
    result = start(fleet, bmc, "--interval", "1", "--all-types").end()
    assert result["outcome"] == "downloaded", result["reason"]
    assert [one["type"] for one in result["collections"]] == ["Manager", "OS"]
    assert any("of several types of data nobody can go on" in note for note in result["bmc"]["notes"])
    (folder,) = [path for path in fleet.folder.iterdir() if path.is_dir()]
    assert len(list(folder.iterdir())) == 2


@pytest.mark.parametrize("kill", [True, False])
def test_a_tree_that_was_cut_short_is_read_anew_and_says_so(fleet, start_bmc, kill):
    bmc = start_bmc({"redfish": {"export_action": "missing", "answers": {"GET /redfish/v1/TaskService": [{"delay": 1.0}]}}})
    worker = start(fleet, bmc)
    bmc.wait_for("/redfish/v1/TaskService")
    if kill:
        worker.kill()
    else:
        worker.process.stdin.close()
        assert worker.end()["outcome"] == "interrupted"
    assert not fleet.archives()
    result = start(fleet, bmc).end()
    assert (result["outcome"], result["operation"]) == ("downloaded", "tree")
    assert any("it is read anew" in note for note in result["bmc"]["notes"]), result["bmc"]["notes"]
    (archive,) = fleet.archives()
    with tarfile.open(archive) as files:
        assert "manifest.json" in files.getnames()


def test_killed_at_its_end_it_is_done_without_the_bmc(fleet, start_bmc):
    bmc = start_bmc()
    assert start(fleet, bmc).end()["outcome"] == "downloaded"
    with fleet.connect() as database:  # as if it had been killed before its last word
        database.execute("UPDATE runs SET ended_at = NULL, exit_code = NULL, outcome = NULL WHERE fleet IS NOT NULL")
        database.execute("UPDATE fleet_hosts SET state = 'transferring', exit_code = NULL, outcome = NULL")
    before = len(bmc.requests())
    result = start(fleet, bmc).end()
    assert result["outcome"] == "downloaded" and result["sha256"] == bmc.ready["archive"]["sha256"]
    assert len(bmc.requests()) == before
    check_whole(fleet, bmc)


def test_an_archive_that_was_changed_since_is_fetched_again(fleet, start_bmc):
    bmc = start_bmc()
    assert start(fleet, bmc).end()["outcome"] == "downloaded"
    (archive,) = fleet.archives()
    archive.write_bytes(b"x" * archive.stat().st_size)
    with fleet.connect() as database:
        database.execute("UPDATE runs SET exit_code = NULL WHERE fleet IS NOT NULL")
    assert start(fleet, bmc).end()["outcome"] == "downloaded"
    assert len(fleet.archives()) == 2


def test_a_task_that_has_failed_is_not_gone_on_with(fleet, start_bmc):
    bmc = start_bmc({"redfish": {"task_states": ["Running", "Killed"]}})
    for tries in (1, 2):
        assert start(fleet, bmc).end()["outcome"] == "task-killed"
        assert len(exports(bmc)) == tries


def test_only_the_rest_of_a_cut_download_is_fetched(fleet, start_bmc):
    bmc = start_bmc({"redfish": {"archive": {"size": 3000000}, "download": {"ranges": True},
                                 "answers": {"GET /download/*": [{"cut_after": 1000000}]}}})
    assert start(fleet, bmc).end()["outcome"] == "connection-lost"
    assert start(fleet, bmc).end()["outcome"] == "downloaded"
    ranges = [r["headers"].get("Range") for r in bmc.requests("GET") if r["path"].startswith("/download")]
    assert ranges[0] is None and ranges[1].startswith("bytes=")
    assert len(exports(bmc)) == 1
    check_whole(fleet, bmc)
