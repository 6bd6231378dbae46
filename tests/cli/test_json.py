# SPDX-License-Identifier: Apache-2.0
"""The JSON of a run: what --json and --events print, and how a reader of theirs fares.

That each object is as docs/schema has it, tool.py looks at by itself.
"""

import json
import os
import signal
import socket
import subprocess
import threading
import time

import pytest

import json_contract
import tool
from tool import EXPORT

SLOW = {"redfish": {"archive": {"size": 6000000}, "answers": {"GET /download/*": [{"rate": 1500000}]}}}


def kinds(ended):
    return [event["event"] for event in ended.events]


# --- what a run has come to -------------------------------------------------------------------


def test_a_wrong_password_is_told_from_a_bmc_that_does_not_answer(bmc):
    wrong = tool.run(tool.check(bmc, "--json"), password="wrong").json
    arguments = tool.check(bmc, "--json")
    arguments[arguments.index("--port") + 1] = str(tool.free_port())
    silent = tool.run(arguments, password=bmc.password).json
    arguments[3] = "no-such-host.invalid"
    unknown = tool.run(arguments, password=bmc.password).json

    assert [run["exit_code"] for run in (wrong, silent, unknown)] == [3, 3, 3]
    assert (wrong["outcome"], wrong["retryable"]) == ("login-refused", False)
    assert (silent["outcome"], silent["retryable"]) == ("unreachable", True)
    assert (unknown["outcome"], unknown["retryable"]) == ("unknown-host", False)


@pytest.mark.parametrize("status, outcome", [(500, "bmc-fault"), (502, "unreachable"), (404, "no-service")])
def test_a_service_that_fails_now_is_told_from_none(start_bmc, status, outcome):
    bmc = start_bmc({"redfish": {"answers": {tool.SERVICE_ROOT: [{"status": status, "repeat": True}]}}})
    run = tool.run(tool.check(bmc, "--json"), password=bmc.password).json
    assert (run["exit_code"], run["outcome"], run["retryable"]) == (3, outcome, outcome != "no-service")


def test_a_missing_password_has_a_name_of_its_own(bmc):
    arguments = [a for a in tool.check(bmc, "--json") if a not in ("--password-file", "-")]
    assert tool.run(arguments).json["outcome"] == "no-password"


def test_a_run_beyond_its_deadline_has_a_name_of_its_own(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"answers": {"GET */Tasks/1": [{"delay": 30}]}}})
    ended = tool.run(tool.collect(bmc, tmp_path, "--events", "--deadline", "1s"), password=bmc.password)
    assert ended.code == 6
    assert (ended.json["outcome"], ended.json["retryable"]) == ("deadline", True)


def test_times_are_utc_and_in_order(bmc, tmp_path):
    before = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime())
    run = tool.run(tool.collect(bmc, tmp_path, "--json"), password=bmc.password,
                   environment={"TZ": "Asia/Kathmandu"}).json
    after = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime())
    assert before <= run["started"] <= run["ended"] <= after
    assert run["user"] == bmc.user


def test_the_address_of_a_name_is_told(bmc):
    arguments = tool.check(bmc, "--json")
    arguments[3] = "localhost"
    run = tool.run(arguments, password=bmc.password).json
    assert (run["host"], run["address"]) == ("localhost", "127.0.0.1")


def test_a_proxys_address_is_not_the_bmcs(bmc):
    with socket.create_server(("127.0.0.1", 0)) as proxy:
        hanging_up = threading.Thread(target=lambda: proxy.accept()[0].close())
        hanging_up.start()
        ended = tool.run(tool.check(bmc, "--json"), password=bmc.password,
                         environment={"https_proxy": f"http://127.0.0.1:{proxy.getsockname()[1]}"})
        hanging_up.join()
    assert ended.code == 3
    assert ended.json["address"] is None


@pytest.mark.parametrize("form", ["--json", "--events"])
@pytest.mark.parametrize("arguments, command", [
    (["collect", "--via", "redfish", "h", "--tries", "0"], "collect"),
    (["check", "--via", "x", "h"], "check"), (["colect", "h"], None)])
def test_a_usage_error_is_an_object_too(arguments, command, form):
    ended = tool.run([*arguments, form])
    assert ended.code == 2
    run = ended.json
    assert (run["command"], run["outcome"], run["exit_code"]) == (command, "usage", 2)
    assert ended.err.startswith(f"kemffdc: {run['reason']}\n")
    assert ended.out.count("\n") == 1


def test_json_and_events_exclude_each_other():
    ended = tool.run(["collect", "--via", "redfish", "h", "--json", "--events"])
    assert ended.code == 2
    assert ended.json["reason"].startswith("--json and --events exclude each other")


# --- events -----------------------------------------------------------------------------------


def test_events_tell_each_change_and_end_with_the_result(start_bmc, tmp_path):
    bmc = start_bmc(SLOW)
    ended = tool.run(tool.collect(bmc, tmp_path, "--events"), password=bmc.password)
    assert ended.code == 0, ended.err
    events = ended.events
    assert events[0]["event"] == "run-begun"
    assert (events[0]["host"], events[0]["port"], events[0]["user"]) == (bmc.address, bmc.port, bmc.user)
    assert events[0]["run"] == ended.json["run"]
    begun = [event["name"] for event in events if event["event"] == "step-begun"]
    steps = [event["step"] for event in events if event["event"] == "step-ended"]
    assert begun == [step["name"] for step in steps]
    assert steps == ended.json["steps"]
    states = [event["state"] for event in events if event["event"] == "state"]
    assert states[0] == "task New" and "task Completed" in states
    (delivered,) = [event for event in events if event["event"] == "delivered"]
    for name in ("path", "size", "sha256"):
        assert delivered[name] == ended.json[name]
    assert ended.json["outcome"] == "downloaded"


def test_bytes_come_once_a_second(start_bmc, tmp_path):
    bmc = start_bmc(SLOW)
    ended = tool.run(tool.collect(bmc, tmp_path, "--events"), password=bmc.password)
    counts = [event for event in ended.events if event["event"] == "bytes"]
    assert 3 <= len(counts) <= 6  # of four seconds
    assert [count["bytes"] for count in counts] == sorted(count["bytes"] for count in counts)
    assert counts[-1]["expected"] == 6000000
    for before, after in zip(counts, counts[1:]):
        assert after["elapsed"] - before["elapsed"] > 0.9


def test_each_line_comes_at_once(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"answers": {"GET */Tasks/1": [{"delay": 20}]}}})
    running = tool.Running(tool.collect(bmc, tmp_path, "--events"), password=bmc.password)
    line = ""
    while '"name":"gather"' not in line:
        line = running.read_line()
        assert line, "the tool has ended"
    assert running.process.poll() is None
    ended = running.interrupt()
    assert ended.code == 130
    assert ended.json["outcome"] == "interrupted"


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_an_interrupt_still_brings_the_last_line(start_bmc, tmp_path, number):
    bmc = start_bmc({"redfish": {"answers": {"GET /download/*": [{"rate": 20000}]}}})
    running = tool.Running(tool.collect(bmc, tmp_path, "--events"), password=bmc.password)
    bmc.wait_for("/download")
    ended = running.interrupt(number)
    assert ended.code == 130
    assert ended.seconds < 1.5 * tool.SLOWNESS
    assert (ended.json["outcome"], ended.json["exit_code"]) == ("interrupted", 130)


def test_sigkill_leaves_whole_lines(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"answers": {"GET /download/*": [{"rate": 20000}]}}})
    running = tool.Running(tool.collect(bmc, tmp_path, "--events"), password=bmc.password)
    bmc.wait_for("/download")
    running.process.kill()
    out = running.end().out
    assert out.endswith("\n")
    for line in out.split("\n")[:-1]:
        json_contract.check(line, "event")


def test_a_secret_that_the_bmc_tells_back_stands_in_no_line(start_bmc, tmp_path):
    echo = {"status": 400, "json": {"error": {"message": "word correct-horse, no"}}, "repeat": True}
    bmc = start_bmc({"password": "correct-horse", "redfish": {"answers": {EXPORT: [echo]}}})
    ended = tool.run(tool.collect(bmc, tmp_path, "--events"), password=bmc.password)
    assert ended.code == 4
    assert "correct-horse" not in ended.out and "word **********, no" in ended.out


def collecting(bmc, folder, out):
    """The tool with --events and `out` as its standard output."""
    process = subprocess.Popen(
        [tool.TOOL, *tool.collect(bmc, folder, "--events")], stdin=subprocess.PIPE, stdout=out,
        stderr=subprocess.PIPE, env=tool.clean_environment())
    process.stdin.write(bmc.password.encode())
    process.stdin.close()
    process.stdin = None
    return process


def archives(folder):
    return [path for path in folder.iterdir() if path.suffix == ".gz"]


def test_a_reader_that_goes_away_ends_no_collection(start_bmc, tmp_path):
    bmc = start_bmc(SLOW)
    reading, writing = os.pipe()
    process = collecting(bmc, tmp_path, writing)
    os.close(writing)
    bmc.wait_for("/download")
    os.close(reading)
    err = process.communicate(timeout=60 * tool.SLOWNESS)[1]
    assert process.returncode == 8
    assert b"kemffdc: cannot write to standard output\n" in err
    (archive,) = archives(tmp_path)
    assert archive.stat().st_size == 6000000


def fill(descriptor):
    """Until a pipe takes no more."""
    count = 0
    os.set_blocking(descriptor, False)
    try:
        while True:
            count += os.write(descriptor, b"\n" * 4096)
    except BlockingIOError:
        os.set_blocking(descriptor, True)
        return count


def test_a_reader_that_does_not_read_holds_up_no_collection(start_bmc, tmp_path):
    bmc = start_bmc(SLOW)
    reading, writing = os.pipe()
    filled = fill(writing)
    process = collecting(bmc, tmp_path, writing)
    os.close(writing)
    end = time.monotonic() + 40 * tool.SLOWNESS
    while not archives(tmp_path):
        assert time.monotonic() < end and process.poll() is None, "the archive is not there"
        time.sleep(0.1)
    # Now it reads after all, and gets everything.
    with os.fdopen(reading, "rb") as pipe:
        text = pipe.read()[filled:].decode("utf-8")
    assert process.wait(10 * tool.SLOWNESS) == 0
    process.stderr.close()
    lines = text.split("\n")[:-1]
    assert json.loads(lines[0])["event"] == "run-begun"
    assert json_contract.check(lines[-1], "run")["outcome"] == "downloaded"


def test_an_interrupt_ends_a_run_whose_reader_does_not_read(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"answers": {"GET /download/*": [{"rate": 20000}]}}})
    reading, writing = os.pipe()
    fill(writing)
    process = collecting(bmc, tmp_path / "out", writing)
    os.close(writing)
    bmc.wait_for("/download")
    process.send_signal(signal.SIGINT)
    assert process.wait(10 * tool.SLOWNESS) == 130
    os.close(reading)
    process.stderr.close()
    assert not (tmp_path / "out").exists()
