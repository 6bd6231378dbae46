# SPDX-License-Identifier: Apache-2.0
"""What outlives a run: records, the history, locks, and the commands that ask about them."""

import hashlib
import io
import json
import pathlib
import re
import signal
import sqlite3
import tarfile
import time

import pytest

import tool

UTC = r"20\d\d-\d\d-\d\dT\d\d:\d\d:\d\dZ"
READY = {"redfish": {"task_states": ["Completed"]}}


def collect(bmc, output, *arguments, **options):
    return tool.run(tool.collect(bmc, output, *arguments), password=bmc.password, **options)


def collected(bmc, output, *arguments):
    """A run that goes well; the JSON that it prints."""
    ended = collect(bmc, output, "--json", *arguments)
    assert ended.code == 0, ended.err
    return ended.json


def asked(*arguments, code=0):
    ended = tool.run([*arguments, "--json"])
    assert ended.code == code, ended.err
    account = ended.json
    assert account["exit_code"] == code
    assert account["command"] == arguments[0]
    return account


def runs(*arguments):
    return asked("history", *arguments)["runs"]


def packed(**files):
    made = io.BytesIO()
    with tarfile.open(fileobj=made, mode="w:gz") as archive:
        for name, content in files.items():
            info = tarfile.TarInfo(name)
            info.size = len(content)
            archive.addfile(info, io.BytesIO(content))
    return made.getvalue()


# --- names and records ------------------------------------------------------------------------


def test_the_record_beside_an_archive_is_the_object_that_json_prints(bmc, tmp_path, state):
    account = collected(bmc, tmp_path / "out")
    path = pathlib.Path(account["path"])
    record = pathlib.Path(str(path) + ".json")
    assert json.loads(record.read_text(encoding="utf-8")) == account
    assert record.stat().st_mode & 0o777 == 0o600
    assert account["run"] == 1
    assert re.fullmatch(UTC, account["started"]) and re.fullmatch(UTC, account["ended"])
    assert (state / "history.db").stat().st_mode & 0o777 == 0o600
    assert state.stat().st_mode & 0o777 == 0o700


def test_a_name_template_names_the_archive(start_bmc, tmp_path):
    bmc = start_bmc(READY)
    account = collected(bmc, tmp_path / "out", "--name-template", "case-17.{host}-{utc}")
    name = pathlib.Path(account["path"]).name
    assert re.fullmatch(r"case-17\.127\.0\.0\.1-\d{8}T\d{6}Z\.tar\.gz", name)
    assert tool.archives_in(tmp_path / "out") == [name]


@pytest.mark.parametrize("template", ["{hosts}", "a/b", "{name", "x" * 101])
def test_a_bad_template_is_refused_before_anything_happens(template, tmp_path):
    ended = tool.run(["collect", "--via", "redfish", "192.0.2.1", "--output", str(tmp_path / "out"),
                      "--name-template", template])
    assert ended.code == 2
    assert ended.err.startswith("kemffdc: --name-template ")
    assert not (tmp_path / "out").exists()


# --- archives that cannot be read -------------------------------------------------------------


BROKEN = {
    "an HTML page": (b"<!DOCTYPE html><html>Log in</html>",
                     r'is none: it begins with "<!DOCTYPE html><html>Log in</html>"'),
    "cut": (packed(a=hashlib.sha256(b"a").digest() * 300)[:-9], "ends too early: it is cut"),
    "a flipped bit": (bytes(byte ^ (4 if place == 20 else 0) for place, byte in enumerate(
        packed(a=hashlib.sha256(b"a").digest() * 300))), r"is damaged \(.*\)"),
}


@pytest.mark.parametrize("what", sorted(BROKEN))
def test_an_archive_that_cannot_be_read_is_kept_and_told(what, start_bmc, tmp_path, state):
    body, reason = BROKEN[what]
    (tmp_path / "body").write_bytes(body)
    bmc = start_bmc({"redfish": {**READY["redfish"], "answers": {"GET /download/*": [
        {"status": 200, "file": str(tmp_path / "body")}]}}})
    ended = collect(bmc, tmp_path / "out", "--json")
    assert ended.code == 9, ended.err
    account = ended.json
    assert account["outcome"] == "unreadable"
    assert re.search(f"The archive is kept, but it {reason}\\. ", account["reason"])
    assert pathlib.Path(account["path"]).read_bytes() == body
    assert tool.archives_in(tmp_path / "out") == [pathlib.Path(account["path"]).name]
    (archive,) = runs()[0]["archives"]
    assert archive["readable"] is False and re.fullmatch(reason, archive["reason"])
    assert not asked("show", account["path"], code=9)["contents"][0]["readable"]
    assert asked("verify")["files"][0]["outcome"] == "ok", "it is as it came"


# --- history ----------------------------------------------------------------------------------


def test_the_history_lists_runs_the_newest_first(start_bmc, tmp_path, state):
    assert runs() == [] and not state.exists(), "asking makes nothing"
    bmc = start_bmc(READY)
    good = collected(bmc, tmp_path / "out")
    assert tool.run(tool.collect(bmc, tmp_path / "out"), password="wrong").code == 3
    newest, oldest = runs()
    assert (newest["run"], newest["exit_code"], newest["archives"]) == (2, 3, [])
    assert newest["reason"].startswith("The BMC at 127.0.0.1")
    assert oldest["outcome"] == "downloaded"
    assert (oldest["host"], oldest["port"], oldest["channel"]) == ("127.0.0.1", bmc.port, "redfish")
    assert oldest["task_uri"].endswith("/Tasks/1") and oldest["remote_path"].startswith("/download/")
    (archive,) = oldest["archives"]
    assert {name: archive[name] for name in ("path", "size", "sha256", "readable")} == {
        "path": good["path"], "size": good["size"], "sha256": good["sha256"], "readable": True}
    words = tool.run(["history"])
    assert words.code == 0
    assert re.search(rf"^ +1  {UTC}  downloaded +redfish  127\.0\.0\.1 port {bmc.port}\n +{re.escape(good['path'])}$",
                     words.out, re.M)
    assert [run["run"] for run in runs("--limit", "1")] == [2]
    assert len(runs("127.0.0.1")) == 2 and runs("127.0.0.2") == []
    assert tool.run(["history", "127.0.0.2"]).out == "No run is known.\n"


def test_check_is_no_run(bmc, state):
    assert tool.run(tool.check(bmc), password=bmc.password).code == 0
    assert not (state / "history.db").exists() and runs() == []


def test_no_secret_stands_in_state_folder_or_record(bmc, tmp_path, state):
    collected(bmc, tmp_path / "out")
    for place in (state, tmp_path / "out"):
        for file in place.rglob("*"):
            if file.is_file():
                content = file.read_bytes()
                for secret in {bmc.password, *bmc.tokens()}:
                    assert secret.encode() not in content, file


@pytest.mark.parametrize("step, moment", [("gather", "/Tasks/"), ("download", "/download/")])
def test_a_killed_run_leaves_what_is_needed_to_go_on(start_bmc, tmp_path, state, step, moment):
    bmc = start_bmc({"redfish": {
        "task_states": ["Running"] * 1000 if step == "gather" else ["Completed"],
        "archive": {"size": 3000000},
        "answers": {"GET /download/*": [{"rate": 100000, "repeat": True}]}}})
    arguments = tool.collect(bmc, tmp_path / "out")
    arguments[arguments.index("--interval") + 1] = "1"
    running = tool.Running(arguments, password=bmc.password)
    bmc.wait_for(moment)
    time.sleep(0.3 * tool.SLOWNESS)
    (live,) = runs()
    assert live["outcome"] == "running" and live["ended"] is None and live["exit_code"] is None
    running.process.send_signal(signal.SIGKILL)
    running.end()
    (killed,) = runs()
    assert killed["outcome"] == "killed"
    assert killed["task_uri"].endswith("/Tasks/1")
    assert killed["user"] == bmc.user
    steps = asked("show", "1")["run"]["steps"]
    assert steps[-1]["name"] == step and steps[-1]["code"] is None
    if step == "download":
        assert killed["remote_path"].startswith("/download/")
        assert killed["archives"][0]["path"] is None
    with sqlite3.connect(state / "history.db") as database:
        assert database.execute("PRAGMA integrity_check").fetchone() == ("ok",)


def broken(state):
    state.mkdir(parents=True, mode=0o700)
    (state / "history.db").write_bytes(b"no database" * 1000)
    return "file is not a database"


def newer(state):
    state.mkdir(parents=True, mode=0o700)
    with sqlite3.connect(state / "history.db") as database:
        database.execute("PRAGMA user_version = 99")
    return "was written by a newer kemffdc"


def no_folder(state):
    state.parent.mkdir(parents=True)
    state.write_text("", encoding="utf-8")
    return "is not a folder"


@pytest.mark.parametrize("how", [broken, newer, no_folder])
def test_no_collection_fails_because_of_its_history(how, start_bmc, tmp_path, state):
    words = how(state)
    bmc = start_bmc(READY)
    ended = collect(bmc, tmp_path / "out", "--json")
    assert ended.code == 0, ended.err
    assert ended.json["run"] is None
    notes = [line for line in ended.err.splitlines() if line.startswith("Note: ")]
    assert len(notes) == 1 and words in notes[0]
    if how is not no_folder:
        asked("history", code=8)


def test_a_locked_history_is_waited_for_and_then_left_alone(start_bmc, tmp_path, state):
    bmc = start_bmc(READY)
    collected(bmc, tmp_path / "out")
    with sqlite3.connect(state / "history.db", isolation_level=None) as database:
        database.execute("BEGIN IMMEDIATE")
        ended = collect(bmc, tmp_path / "out", "--json")
        database.execute("ROLLBACK")
    assert ended.code == 0 and ended.json["run"] is None
    assert "database is locked" in ended.err
    assert len(runs()) == 1


# --- one run for each BMC ---------------------------------------------------------------------


@pytest.fixture
def busy(start_bmc, tmp_path, state):
    """A BMC with a run at work on it."""
    bmc = start_bmc({"redfish": {"task_states": ["Running"] * 3 + ["Completed"]}})
    arguments = tool.collect(bmc, tmp_path / "first")
    arguments[arguments.index("--interval") + 1] = str(int(tool.SLOWNESS))
    running = tool.Running(arguments, password=bmc.password)
    bmc.wait_for("/Tasks/")
    yield bmc, running
    running.end()


def test_a_second_run_on_a_bmc_is_refused(busy, tmp_path):
    bmc, running = busy
    ended = tool.run(tool.collect(bmc, tmp_path / "second", "--json"), password=bmc.password)
    assert ended.code == 8
    assert ended.json["outcome"] == "locked" and ended.json["retryable"] is True
    assert re.search(rf"Another run is at work on this BMC \(process {running.process.pid}, since {UTC}\)",
                     ended.json["reason"])
    assert ended.json["steps"] == [], "the second one asks nothing"
    assert len([asked for asked in bmc.requests("POST") if "ExportFFDCData" in asked["path"]]) == 1
    assert tool.run(tool.check(bmc), password=bmc.password).code == 0, "check gathers nothing"


def test_a_second_run_waits_where_it_is_told_to(busy, tmp_path):
    bmc, _ = busy
    ended = tool.run(tool.collect(bmc, tmp_path / "second", "--wait"), password=bmc.password)
    assert ended.code == 0, ended.err
    assert "Waiting for another run on this BMC (process " in ended.err
    assert [run["outcome"] for run in runs()] == ["downloaded"] * 2


def test_waiting_ends_at_a_signal_and_at_the_deadline(busy, tmp_path):
    bmc, _ = busy
    running = tool.Running(tool.collect(bmc, tmp_path / "second", "--wait"), password=bmc.password)
    time.sleep(0.5 * tool.SLOWNESS)
    assert running.interrupt().code == 130
    ended = tool.run(tool.collect(bmc, tmp_path / "second", "--wait", "--deadline", "1"),
                     password=bmc.password)
    assert ended.code == 6, ended.err


# --- show -------------------------------------------------------------------------------------


def test_show_looks_inside_of_an_archive(bmc, tmp_path, state):
    account = collected(bmc, tmp_path / "out")
    shown = asked("show", "1")
    (inside,) = shown["contents"]
    assert inside["path"] == account["path"] and inside["readable"] is True
    with tarfile.open(account["path"]) as archive:
        assert [entry["name"] for entry in inside["entries"]] == archive.getnames()
        assert [entry["size"] for entry in inside["entries"]] == [one.size for one in archive.getmembers()]
        events = archive.extractfile("ffdc/event_log/events.txt").read().decode().splitlines()
        manifest = archive.extractfile("ffdc/manifest.json").read().decode().splitlines()
    assert inside["events"][0]["lines"] == events[-10:]
    assert inside["manifests"][0]["lines"] == manifest
    assert [step["name"] for step in shown["run"]["steps"]][-1] == "verify"

    moved = tmp_path / "moved.tar.gz"
    pathlib.Path(account["path"]).rename(moved)
    pathlib.Path(account["path"] + ".json").rename(str(moved) + ".json")
    ended = tool.run(["show", str(moved), "--state-dir", str(tmp_path / "no-state")])
    assert ended.code == 0, ended.err
    assert "Run:       1, collect through redfish: downloaded\n" in ended.out
    assert f"BMC:       127.0.0.1 port {bmc.port}\n" in ended.out
    assert "  ffdc/manifest.json\n" in ended.out
    assert events[-1].strip() in ended.out


def test_show_cleans_what_an_archive_says(tmp_path):
    path = tmp_path / "evil.tgz"
    path.write_bytes(packed(**{"events\x1b[2J.log": b"\x1b]0;owned\x07line\n"}))
    ended = tool.run(["show", str(path)])
    assert ended.code == 0, ended.err
    assert "\x1b" not in ended.out and "\x07" not in ended.out
    assert "events\\x1B[2J.log" in ended.out


@pytest.mark.parametrize("what", ["7", "no-such-file", "/no/such/file", "/dev/zero"])
def test_show_of_nothing(what, state):
    assert asked("show", what, code=8)["run"] is None
    assert not state.exists()


# --- verify -----------------------------------------------------------------------------------


def test_verify_compares_with_what_was_recorded(start_bmc, tmp_path, state):
    bmc = start_bmc(READY)
    paths = [pathlib.Path(collected(bmc, tmp_path / "out")["path"]) for _ in range(4)]
    assert tool.run(["verify"]).out == "".join(f"ok          {path}\n" for path in paths)
    content = bytearray(paths[1].read_bytes())
    content[-1] ^= 1
    paths[1].write_bytes(content)
    paths[2].write_bytes(b"short")
    paths[3].unlink()
    for subject in ([], [str(tmp_path / "out")], ["127.0.0.1"]):
        account = asked("verify", *subject, code=9)
        assert account["reason"] == "3 of 4 files are not as recorded."
        # The records of a folder come in the order of their names.
        found = {file["path"]: file["outcome"] for file in account["files"]}
        assert found == dict(zip(map(str, paths), ["ok", "changed", "changed", "missing"]))
    assert asked("verify", "1")["files"][0]["path"] == str(paths[0])
    assert asked("verify", str(paths[0]))["reason"] is None
    assert asked("verify", str(paths[0]) + ".json")["reason"] is None
    ended = tool.run(["verify", "2"])
    assert ended.code == 9
    assert ended.err == "kemffdc: 1 of 1 file is not as recorded. [exit code 9]\n"
    assert f"changed     {paths[1]}: its SHA-256 is now {hashlib.sha256(content).hexdigest()}\n" == ended.out


@pytest.mark.parametrize("what", ["99", "192.0.2.99", "/no/such/file"])
def test_verify_of_nothing(what, state):
    assert asked("verify", what, code=8)["files"] == []
    assert asked("verify", code=8)["reason"] == "The history knows no archive."


def test_verify_of_a_record_that_lies(tmp_path, state):
    (tmp_path / "a.tgz").write_bytes(b"x")
    for text in ("", "[]", "{", "{}", '{"schema":1}', '{"schema":1,"sha256":5,"files":[7,{"path":1}]}'):
        (tmp_path / "a.tgz.json").write_text(text, encoding="utf-8")
        assert asked("verify", str(tmp_path / "a.tgz"), code=8)["files"] == []
