# SPDX-License-Identifier: Apache-2.0
"""What the BMC itself says of its task: while it gathers, and when it does not end well."""

import pathlib
import re
import time

import pytest
import yaml

import cim_tool
import tool

SCENARIOS = tool.ROOT / "emulator" / "scenarios"
TASK_PATH = "/redfish/v1/TaskService/Tasks/1"


def scenario(name):
    return yaml.safe_load((SCENARIOS / f"{name}.yaml").read_text(encoding="utf-8"))


@pytest.fixture
def store(tmp_path):
    folder = tmp_path / "store"
    folder.mkdir()
    started = cim_tool.Store(folder)
    yield started
    started.stop()


def collect_slowly(bmc, output, *arguments):
    """A second between two questions of the library."""
    given = tool.collect(bmc, output, *arguments)
    given[given.index("--interval") + 1] = "1"
    return given


def looks(bmc):
    """The tool's own questions for the task, among the library's."""
    return [r for r in bmc.requests("GET") if r["path"] == TASK_PATH and "kemffdc/" in r["headers"].get("User-Agent", "")]


def polls(bmc):
    """The library's."""
    return [r for r in bmc.requests("GET") if r["path"] == TASK_PATH and r not in looks(bmc)]


def test_a_look_that_the_library_has_overtaken_is_not_shown(start_bmc, tmp_path):
    late = {"delay": 3.0, "task_state": "New"}
    bmc = start_bmc({"redfish": {"task_states": ["New", *["Running"] * 5, "Completed"],
                                 "answers": {"GET */Tasks/1": [{}, late]}}})
    ended = tool.run(collect_slowly(bmc, tmp_path / "out", "--events"), password=bmc.password)
    assert ended.code == 0, ended.err
    assert len(looks(bmc)) >= 2, "the one that came late was not the last"
    states = [e["task"]["state"] for e in ended.events if e["event"] == "task-read" and e["task"]["state"]]
    running = next(n for n, e in enumerate(ended.events) if e["event"] == "state" and e["state"] == "task Running")
    told_later = [e["task"]["state"] for e in ended.events[running:] if e["event"] == "task-read"]
    assert "New" not in told_later, states


# --- the reason -----------------------------------------------------------------------------------


def test_a_wrong_password_of_the_file_store_is_told_as_the_bmc_tells_it(start_bmc, store, tmp_path):
    bmc = start_bmc()
    arguments = collect_slowly(bmc, tmp_path / "out", "--export-uri", store.uri("x.tgz"), *store.account(), "--json")
    ended = tool.run(arguments, password=bmc.password, environment=store.secrets("wrong"))

    assert ended.code == 5
    account = ended.json
    assert re.fullmatch(
        r"The task ended with an exception on the BMC: the service data could not be gathered\. The BMC says "
        rf'\(TaskState Exception, TaskStatus Critical, \d+ %\): "The file store sftp://127\.0\.0\.1:{store.port} '
        r'refused the login of user up\." \(TavrinMessages\.1\.\d+\.ExportLoginRefused\), advice: "Correct the '
        r'user or the password of the export, and start it again\."\.', account["reason"]), account["reason"]
    assert account["outcome"] == "store-refused"
    task = account["task"]
    assert (task["uri"], task["state"], task["status"]) == (TASK_PATH, "Exception", "Critical")
    refusal = task["messages"][-1]
    assert refusal["id"].endswith(".ExportLoginRefused")
    assert refusal["resolution"].startswith("Correct the user")
    assert "wrong" not in ended.out + ended.err


@pytest.mark.parametrize("name, words", [
    ("exception-reason", 'The BMC says (TaskState Exception, TaskStatus Critical, 30 %): "The partition for dumps is '
                         'full." (TavrinMessages.1.0.Note), advice: "Delete older dumps and start the collection again.".'),
    ("killed-reason", 'advice: "Start it again."'),
    ("unknown-state-reason", 'The BMC says (TaskState Degraded, TaskStatus Warning, 60 %): "Processor 2 does not '
                             'answer."'),
])
def test_the_reason_of_a_failed_task_is_told(start_bmc, tmp_path, name, words):
    bmc = start_bmc(scenario(name))
    ended = tool.run(tool.collect(bmc, tmp_path / "out"), password=bmc.password)
    assert ended.code == 5
    assert words in ended.err


def test_a_bmc_that_is_too_slow_tells_how_far_it_is(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"task_states": [{"state": "Running", "percent": 40, "messages": ["Dumping."]}]}})
    ended = tool.run(tool.collect(bmc, tmp_path / "out", "--tries", "2", "--json"), password=bmc.password)
    assert ended.code == 6
    assert 'The BMC says (TaskState Running, TaskStatus OK, 40 %): "Dumping."' in ended.json["reason"]
    assert ended.json["task"]["percent"] == 40


def test_messages_that_nobody_should_print_are_not_printed(start_bmc, tmp_path):
    hostile = scenario("hostile-messages")
    messages = hostile["redfish"]["task_states"][1]["messages"]
    messages[0] = {"fill": 100000}  # of 10 MiB nothing is read
    bmc = start_bmc(hostile)
    ended = tool.run(tool.collect(bmc, tmp_path / "out", "--json"), password=bmc.password)
    assert ended.code == 5
    assert not set("\x1b\x07\x00\x85") & set(ended.json["reason"] + ended.err)
    assert "This one is an ordinary message." in ended.json["reason"]
    assert len(ended.json["reason"]) < 2000


def test_an_answer_that_is_too_long_costs_the_reason_alone(start_bmc, tmp_path):
    long = scenario("hostile-messages")
    long["redfish"]["task_states"][1]["messages"][0] = {"fill": 2000000}
    bmc = start_bmc(long)
    ended = tool.run(tool.collect(bmc, tmp_path / "out"), password=bmc.password)
    assert ended.code == 5
    assert "See the BMC's own log." in ended.err


def test_of_a_task_that_is_gone_nothing_more_is_asked(start_bmc, tmp_path):
    bmc = start_bmc(scenario("task-gone"))
    ended = tool.run(collect_slowly(bmc, tmp_path / "out"), password=bmc.password)
    assert ended.code == 5
    assert "what became of the task (HTTP 404" in ended.err


# --- while it gathers -----------------------------------------------------------------------------


def test_the_progress_line_shows_percent_and_the_newest_message(start_bmc, tmp_path):
    bmc = start_bmc(scenario("gathering"))
    ended = tool.run(collect_slowly(bmc, tmp_path / "out"), password=bmc.password)
    assert ended.code == 0, ended.err
    assert re.search(r"gather: task Running.*\d+ %.*(Reading|Dumping|Packing)", ended.err), ended.err


def test_the_tool_asks_after_the_library_and_never_more_often(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"task_states": ["Running"] * 4 + ["Completed"], "task_step_seconds": 1}})
    ended = tool.run(collect_slowly(bmc, tmp_path / "out"), password=bmc.password)
    assert ended.code == 0, ended.err
    requests = [r for r in bmc.requests("GET") if r["path"] == TASK_PATH]
    own = looks(bmc)
    assert own and requests[0] not in own, "the library asks first"
    assert len(own) <= len(polls(bmc)) + 1, "the last one tells how it ended"


def test_without_a_pause_it_asks_once_a_second(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"task_states": ["Running"], "task_step_seconds": 1}})
    started = time.monotonic()
    ended = tool.run(tool.collect(bmc, tmp_path / "out", "--tries", "500"), password=bmc.password)
    assert ended.code == 6
    assert len(looks(bmc)) <= time.monotonic() - started + 2, "with the last one, for the reason"


def test_a_look_that_fails_is_the_last_and_costs_nothing(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"task_states": ["Running"] * 8 + ["Completed"], "answers": {
        f"GET {TASK_PATH}": [{}, {"hang": True}]}}})
    began = time.monotonic()
    ended = tool.run(collect_slowly(bmc, tmp_path / "out", "--tries", "20"), password=bmc.password,
                     environment={"VARNEX_REST_ACTION_TIMEOUT": "3"})
    assert ended.code == 0, ended.err
    assert len(looks(bmc)) == 2, "the one that failed, and the last"
    assert time.monotonic() - began < 30 * tool.SLOWNESS


def test_a_look_under_way_does_not_hold_up_the_end(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"task_states": ["Running", "Completed"], "answers": {
        f"GET {TASK_PATH}": [{}, {"hang": True}]}}})
    ended = tool.run(collect_slowly(bmc, tmp_path / "out"), password=bmc.password)
    assert ended.code == 0, ended.err
    assert ended.seconds < 8 * tool.SLOWNESS, "a look has 10 s, and the run does not wait for them"


def test_the_archive_is_the_same_as_without_looks(start_bmc, tmp_path):
    bmc = start_bmc(scenario("gathering"))
    ended = tool.run(collect_slowly(bmc, tmp_path / "out", "--json"), password=bmc.password)
    assert ended.code == 0, ended.err
    assert ended.json["sha256"] == bmc.ready["archive"]["sha256"]
    task = ended.json["task"]
    assert (task["state"], task["status"], task["percent"]) == ("Completed", "OK", 100)
    assert [m["text"] for m in task["messages"]][-2:] == ["Packing.", "Task 1 has completed."], task["messages"]
    assert pathlib.Path(ended.json["path"]).stat().st_size == bmc.ready["archive"]["size"]
