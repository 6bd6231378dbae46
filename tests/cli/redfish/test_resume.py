# SPDX-License-Identifier: Apache-2.0
"""Going on with the task of an earlier run: kemffdc resume."""

import hashlib
import pathlib
import re
import shlex
import signal
import time

import pytest

import cim_tool
import tool

SESSIONS = "/redfish/v1/SessionService/Sessions"
STEPS = ["Running"] * 60 + ["Completed"]


@pytest.fixture(autouse=True)
def own_history(state):
    return state


def resume(run, *arguments):
    return ["resume", str(run), "--password-file", "-", *arguments]


def quickly(run, *arguments):
    return resume(run, "--interval", "0", *arguments)


def exports(bmc):
    return [r for r in bmc.requests("POST") if "ExportFFDCData" in r["path"]]


def unfinished(bmc, output, *arguments):
    """A run that has ended before the BMC had."""
    ended = tool.run(tool.collect(bmc, output, "--tries", "2", *arguments), password=bmc.password)
    assert ended.code == 6, ended.err
    return ended


def test_the_command_of_the_message_goes_on_without_a_second_export(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"task_states": STEPS[-12:]}})
    first = unfinished(bmc, tmp_path / "out")
    command = re.search(r"This run can be continued: kemffdc (resume 1) \[exit code 6\]", first.err)
    assert command, first.err

    ended = tool.run([*command[1].split(), "--password-file", "-", "--interval", "0", "--json"], password=bmc.password)

    assert ended.code == 0, ended.err
    account = ended.json
    assert (account["command"], account["outcome"], account["run"]) == ("resume", "downloaded", 2)
    assert account["sha256"] == bmc.ready["archive"]["sha256"]
    archive = pathlib.Path(account["path"])
    assert archive.parent == tmp_path / "out", "the folder of the first run"
    assert hashlib.sha256(archive.read_bytes()).hexdigest() == account["sha256"]
    assert archive.with_name(archive.name + ".json").is_file(), "with the same record"
    assert account["task"]["state"] == "Completed"
    assert len(exports(bmc)) == 1
    assert [step["name"] for step in account["steps"]] == ["preflight", "gather", "download", "verify"]


def test_the_session_of_the_download_is_its_own_and_ends(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"task_states": STEPS[-5:]}})
    unfinished(bmc, tmp_path)
    assert tool.run(quickly(1), password=bmc.password).code == 0
    (session,) = [r["path"] for r in bmc.requests("DELETE")]
    assert session.startswith(SESSIONS + "/")
    assert bmc.tokens(), "the archive was fetched with a token"


def test_a_signal_in_the_download_leaves_no_session(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"task_states": STEPS[-5:], "archive": {"size": 3000000},
                                 "answers": {"GET /download/*": [{"rate": 200000}]}}})
    unfinished(bmc, tmp_path)
    running = tool.Running(quickly(1), password=bmc.password)
    bmc.wait_for("/download/")
    running.interrupt()
    assert running.end(20).code == 130
    assert len(bmc.requests("DELETE")) == 1


@pytest.mark.parametrize("how", [signal.SIGINT, signal.SIGTERM, signal.SIGKILL])
def test_a_run_that_was_stopped_while_it_gathered_goes_on(start_bmc, tmp_path, how):
    bmc = start_bmc({"redfish": {"task_states": STEPS, "task_step_seconds": 0.1}})
    arguments = tool.collect(bmc, tmp_path)
    arguments[arguments.index("--interval") + 1] = "1"
    running = tool.Running(arguments, password=bmc.password)
    bmc.wait_for("/Tasks/1")
    running.process.send_signal(how)
    stopped = running.end(20)
    if how != signal.SIGKILL:
        assert stopped.code == 130 and "kemffdc resume 1" in stopped.err, stopped.err
    ended = tool.run(resume(1, "--interval", "1"), password=bmc.password)
    assert ended.code == 0, ended.err
    assert len(exports(bmc)) == 1


def test_a_download_that_was_cut_is_fetched_after_all(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"archive": {"size": 200000}, "answers": {"GET /download/*": [{"cut_after": 1000}]}}})
    first = tool.run(tool.collect(bmc, tmp_path), password=bmc.password)
    assert first.code == 7 and "kemffdc resume 1" in first.err, first.err
    ended = tool.run(quickly(1, "--json"), password=bmc.password)
    assert ended.code == 0, ended.err
    assert ended.json["sha256"] == bmc.ready["archive"]["sha256"]
    assert len(exports(bmc)) == 1


def test_a_resumed_run_can_be_continued_itself(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"task_states": STEPS[-20:]}})
    unfinished(bmc, tmp_path)
    second = tool.run(quickly(1, "--tries", "2"), password=bmc.password)
    assert second.code == 6 and "kemffdc resume 2" in second.err, second.err
    assert tool.run(quickly(2), password=bmc.password).code == 0
    assert len(exports(bmc)) == 1


def test_an_older_bmc_keeps_its_tasks_elsewhere(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"version": "1.5.0", "task_states": STEPS[-5:]}})
    unfinished(bmc, tmp_path)
    assert tool.run(quickly(1), password=bmc.password).code == 0


def test_an_export_to_a_store_is_waited_for_without_the_stores_password(start_bmc, tmp_path):
    (tmp_path / "store").mkdir()
    store = cim_tool.Store(tmp_path / "store")
    try:
        bmc = start_bmc({"redfish": {"task_states": STEPS[-8:]}})
        first = tool.run(
            tool.collect(bmc, tmp_path / "out", "--tries", "2", "--export-uri", store.uri("x.tgz"), *store.account()),
            password=bmc.password, environment=store.secrets())
        assert first.code == 6 and "kemffdc resume 1" in first.err, first.err
        ended = tool.run(resume(1, "--interval", "1", "--json"), password=bmc.password)
        assert ended.code == 0, ended.err
        assert (ended.json["outcome"], ended.json["export_uri"]) == ("exported", store.uri("x.tgz"))
        assert (tmp_path / "store" / "x.tgz").is_file()
    finally:
        store.stop()


@pytest.mark.parametrize("states, code, words", [
    (["Running", "Exception"], 5, "The task ended with an exception on the BMC"),
    (["Running", "Killed"], 5, "The BMC killed the task"),
    (["Running", "Cancelled"], 5, "The BMC killed the task"),
    (["Running", "Dreaming"], 5, "in a state that is not known"),
    (["Running", None], 5, "holds no TaskState"),
    (["Running", "Pending", "Suspended", "Service", "Stopping", "Completed"], 0, "Archive: "),
])
def test_every_way_that_a_task_can_end(start_bmc, tmp_path, states, code, words):
    bmc = start_bmc({"redfish": {"task_states": ["Running"] * 12 + states}})
    unfinished(bmc, tmp_path)
    ended = tool.run(quickly(1), password=bmc.password)
    assert ended.code == code, ended.err
    assert words in ended.out + ended.err
    assert ("kemffdc resume" in ended.err) is False


def test_a_task_that_the_bmc_has_forgotten_is_told(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"task_states": ["Running"] * 6 + [{"state": "Running", "gone": True}]}})
    unfinished(bmc, tmp_path)
    ended = tool.run(quickly(1), password=bmc.password)
    assert ended.code == 5
    assert "The BMC does not tell what became of the task (HTTP 404" in ended.err


def test_a_bmc_that_is_busy_for_a_moment_is_asked_again(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"task_states": STEPS[-7:]}})
    unfinished(bmc, tmp_path)
    bmc.stop()  # and one that is gone is told as such
    ended = tool.run(quickly(1), password=bmc.password)
    assert ended.code == 3 and "Cannot connect to" in ended.err


def test_a_wrong_password_is_tried_once(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"task_states": STEPS[-7:]}})
    unfinished(bmc, tmp_path)
    before = len(bmc.requests())
    ended = tool.run(quickly(1), password="wrong")
    assert ended.code == 3 and "Check --user and the password." in ended.err
    assert len([r for r in bmc.requests()[before:] if "Authorization" in r["headers"]]) == 1


def test_no_secret_in_any_place(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"task_states": STEPS[-7:]}})
    unfinished(bmc, tmp_path)
    log = tmp_path / "log"
    ended = tool.run(quickly(1, "--log-file", str(log), "--json"), password=bmc.password)
    assert ended.code == 0, ended.err
    texts = ended.out + ended.err + ended.command_line + log.read_text(encoding="utf-8")
    for secret in {bmc.password} | bmc.tokens():
        assert secret not in texts


def killed_at_the_request(bmc, output):
    """A run that never saw the answer to its request."""
    running = tool.Running(tool.collect(bmc, output), password=bmc.password)
    bmc.wait_for("ExportFFDCData")
    running.process.send_signal(signal.SIGKILL)
    running.end(20)


def test_a_run_that_was_killed_before_it_knew_its_task_finds_it(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"task_states": STEPS[-6:], "answers": {tool.EXPORT: [{"delay": 1.5}]}}})
    killed_at_the_request(bmc, tmp_path)
    ended = tool.run(quickly(1, "--json"), password=bmc.password)
    assert ended.code == 0, ended.err
    assert ended.json["sha256"] == bmc.ready["archive"]["sha256"]
    assert [step["name"] for step in ended.json["steps"]][:3] == ["preflight", "adopt", "gather"]
    assert len(exports(bmc)) == 1


def test_another_ones_older_export_is_not_taken_for_it(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"answers": {tool.EXPORT: [{}, {"status": 500, "delay": 1.5}]}}})
    assert tool.run(tool.collect(bmc, tmp_path), password=bmc.password).code == 0
    time.sleep(4)
    running = tool.Running(tool.collect(bmc, tmp_path), password=bmc.password)
    bmc.wait_for_request(lambda request: len(exports(bmc)) == 2, "for a second export")
    running.process.send_signal(signal.SIGKILL)
    running.end(20)
    ended = tool.run(quickly(2), password=bmc.password)
    assert ended.code == 4
    assert "The BMC has no task of that run" in ended.err and "Use kemffdc collect." in ended.err


# --- runs that there is nothing to go on with -----------------------------------------------------


@pytest.mark.parametrize("run", ["0", "-1", "x", "1x", "99999999999999999999"])
def test_what_is_no_number_is_told(run):
    ended = tool.run(["resume", "--", run], password="")
    assert ended.code == 2
    assert "RUN is the number of a run" in ended.err or "RUN" in ended.err


def test_without_a_history_there_is_no_run(own_history):
    ended = tool.run(["resume", "1"], password="")
    assert ended.code == 2
    assert f"There is no run 1 in the history ({own_history})." in ended.err
    assert not own_history.exists(), "nothing is made"


def test_a_run_that_has_its_archive_is_over(bmc, tmp_path):
    first = tool.run(tool.collect(bmc, tmp_path, "--json"), password=bmc.password)
    ended = tool.run(resume(1), password=bmc.password)
    assert ended.code == 2
    assert f"Run 1 has brought its archive: {first.json['path']}." in ended.err


def test_a_run_without_a_task_has_nothing_to_go_on_with(bmc, tmp_path):
    assert tool.run(tool.collect(bmc, tmp_path), password="wrong").code == 3
    ended = tool.run(resume(1), password=bmc.password)
    assert ended.code == 2
    assert "Run 1 has started no task on the BMC" in ended.err


def test_a_run_that_is_at_work_is_left_alone(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"task_states": ["Running"]}})
    arguments = tool.collect(bmc, tmp_path)
    arguments[arguments.index("--interval") + 1] = "1"
    running = tool.Running(arguments, password=bmc.password)
    bmc.wait_for("/Tasks/1")
    ended = tool.run(resume(1), password=bmc.password)
    running.interrupt()
    running.end(20)
    assert ended.code == 2 and "Run 1 is still at work." in ended.err


def test_a_state_folder_of_ones_own_stands_in_the_command(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"task_states": STEPS[-7:]}})
    folder = tmp_path / "a state's folder"
    first = unfinished(bmc, tmp_path / "out", "--state-dir", str(folder))
    command = re.search(r"kemffdc (resume 1 --state-dir '.*') \[exit", first.err)[1]
    assert shlex.split(command) == ["resume", "1", "--state-dir", str(folder)]
    ended = tool.run([*shlex.split(command), "--password-file", "-", "--interval", "0"], password=bmc.password)
    assert ended.code == 0, ended.err


# --- downloads that were cut ----------------------------------------------------------------------


SIZE = 3000000


def parts_in(folder):
    return [name for name in tool.files_in(folder) if name.endswith(".varnex-part")]


def cut(start_bmc, output, *arguments, **download):
    """A BMC that breaks the first download off after a million bytes, and a run that met it."""
    bmc = start_bmc({"redfish": {"archive": {"size": SIZE}, "download": {"ranges": True, **download},
                                 "answers": {"GET /download/*": [{"cut_after": 1000000}]}}})
    ended = tool.run(tool.collect(bmc, output, *arguments), password=bmc.password)
    assert ended.code == 7 and "kemffdc resume 1" in ended.err, ended.err
    return bmc


def ranges(bmc):
    return [r["headers"].get("Range") for r in bmc.requests("GET") if r["path"].startswith("/download")]


def test_only_the_rest_of_a_download_is_fetched(start_bmc, tmp_path):
    out = tmp_path / "out"
    bmc = cut(start_bmc, out)
    (part,) = parts_in(out)
    kept = (out / part).stat().st_size
    assert 0 < kept <= 1000000
    ended = tool.run(quickly(1, "--json"), password=bmc.password)
    assert ended.code == 0, ended.err
    assert ended.json["sha256"] == bmc.ready["archive"]["sha256"]
    assert ranges(bmc) == [None, f"bytes={kept}-"]
    archive = pathlib.Path(ended.json["path"]).name
    assert tool.files_in(out) == sorted([archive, archive + ".json"]), "nothing else stays"


@pytest.mark.parametrize("download", [{"replaced_after": 1}, {"ranges": False}, {"heed_if_range": False}])
def test_what_cannot_be_continued_is_fetched_anew(start_bmc, tmp_path, download):
    bmc = cut(start_bmc, tmp_path / "out", **download)
    ended = tool.run(quickly(1, "--json"), password=bmc.password)
    assert ended.code == 0, ended.err
    assert ended.json["size"] == SIZE
    assert not parts_in(tmp_path / "out")


@pytest.mark.parametrize("download", [{"etag": "none", "last_modified": False}, {"ranges": False}])
def test_what_nobody_could_continue_is_not_kept(start_bmc, tmp_path, download):
    cut(start_bmc, tmp_path / "out", **download)
    assert tool.files_in(tmp_path / "out") == []


def test_the_next_run_into_the_folder_leaves_the_part(start_bmc, tmp_path):
    out = tmp_path / "out"
    bmc = cut(start_bmc, out)
    other = start_bmc()
    assert tool.run(tool.collect(other, out), password=other.password).code == 0
    (part,) = parts_in(out)
    kept = (out / part).stat().st_size
    assert tool.run(quickly(1), password=bmc.password).code == 0
    assert ranges(bmc)[-1] == f"bytes={kept}-"


@pytest.mark.parametrize("how", [signal.SIGINT, signal.SIGKILL])
def test_a_download_that_was_stopped_goes_on_where_it_was(start_bmc, tmp_path, how):
    out = tmp_path / "out"
    bmc = start_bmc({"redfish": {"archive": {"size": SIZE}, "download": {"ranges": True},
                                 "answers": {"GET /download/*": [{"hang_after": 1000000}]}}})
    running = tool.Running(tool.collect(bmc, out), password=bmc.password)
    end = time.monotonic() + 20 * tool.SLOWNESS
    while not any((out / part).stat().st_size > 500000 for part in parts_in(out)):
        assert time.monotonic() < end
        time.sleep(0.05)
    running.process.send_signal(how)
    running.end(30)
    (part,) = parts_in(out)
    kept = (out / part).stat().st_size
    ended = tool.run(quickly(1, "--json"), password=bmc.password)
    assert ended.code == 0, ended.err
    assert ended.json["sha256"] == bmc.ready["archive"]["sha256"]
    assert ranges(bmc)[-1] == f"bytes={kept}-"


def test_a_part_that_is_too_large_for_the_run_is_not_kept(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"archive": {"size": SIZE}, "download": {"ranges": True}}})
    ended = tool.run(tool.collect(bmc, tmp_path / "out", "--max-size", "1M"), password=bmc.password)
    assert ended.code == 7
    assert tool.files_in(tmp_path / "out") == []


def test_the_part_of_a_resumed_run_is_continued_too(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"archive": {"size": SIZE}, "download": {"ranges": True},
                                 "answers": {"GET /download/*": [{"cut_after": 1000000}, {"cut_after": 1000000}]}}})
    assert tool.run(tool.collect(bmc, tmp_path), password=bmc.password).code == 7
    assert tool.run(quickly(1), password=bmc.password).code == 7
    ended = tool.run(quickly(2, "--json"), password=bmc.password)
    assert ended.code == 0, ended.err
    assert ended.json["sha256"] == bmc.ready["archive"]["sha256"]
    offsets = [int(r[6:-1]) if r else 0 for r in ranges(bmc)]
    assert offsets == sorted(set(offsets)) and len(offsets) == 3
