# SPDX-License-Identifier: Apache-2.0
"""Ctrl-C and its kin, while the tool is blocked in every one of its steps."""

import signal
import termios
import time

import pytest

import tool
from tool import EXPORT, SERVICE_ROOT, SESSIONS, TASK

BOUND = 1.0  # seconds; instrumented builds get more

HANG = [{"hang": True, "repeat": True}]

# Step: where the BMC leaves the tool waiting, and the request that shows that it got there.
STEPS = {
    "preflight": ({SERVICE_ROOT: HANG}, "/redfish/v1/"),
    "login": ({"GET */Managers/1": HANG}, "/Managers/1"),
    "start": ({SERVICE_ROOT: [{}, *HANG]}, "/Managers/1"),
    "starting (503)": ({SERVICE_ROOT: [{"status": 503, "repeat": True}]}, "/redfish/v1/"),
    "connect": ({"GET */8A6CA3D3EC": HANG}, "/8A6CA3D3EC"),
    "export": ({EXPORT: HANG}, "ExportFFDCData"),
    "gather": ({TASK: HANG}, "/Tasks/1"),
    "session": ({SESSIONS: HANG}, "/Sessions"),
    "download begins": ({"GET /download/*": HANG}, "/download"),
    "download": ({"GET /download/*": [{"rate": 20000}]}, "/download"),
    "download stalls": ({"GET /download/*": [{"hang_after": 50000}]}, "/download"),
}


def scenario(answers):
    return {"redfish": {"archive": {"size": 1000000}, "task_states": ["Completed"], "answers": answers}}


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP], ids=lambda n: n.name)
@pytest.mark.parametrize("step", sorted(STEPS))
def test_interrupted_in_every_step(start_bmc, tmp_path, step, number):
    answers, path = STEPS[step]
    bmc = start_bmc(scenario(answers))
    output = tmp_path / "out"
    running = tool.Running(tool.collect(bmc, output, "--json"), password=bmc.password)
    bmc.wait_for(path)
    time.sleep(0.3)  # into the blocking call
    ended = running.interrupt(number)
    assert ended.code == 130, ended.err
    assert ended.seconds < BOUND * tool.SLOWNESS
    account = ended.json
    assert (account["outcome"], account["exit_code"]) == ("interrupted", 130)
    assert account["path"] is None
    assert ended.err.endswith(
        "kemffdc: Interrupted. A BMC that has begun to gather goes on. [exit code 130]\n")
    assert not output.exists(), tool.files_in(output)


def test_interrupted_between_two_polls(start_bmc, tmp_path):
    bmc = start_bmc({"redfish": {"task_states": ["Running"]}})
    arguments = tool.collect(bmc, tmp_path)
    arguments[arguments.index("--interval") + 1] = "600"
    running = tool.Running(arguments, password=bmc.password)
    bmc.wait_for("/Tasks/1")
    time.sleep(0.3)
    ended = running.interrupt()
    assert (ended.code, ended.out) == (130, "")
    assert ended.seconds < BOUND * tool.SLOWNESS
    assert tool.files_in(tmp_path) == []


def test_interrupted_while_the_password_is_read_from_a_pipe(bmc, tmp_path):
    running = tool.Running.__new__(tool.Running)
    running.started = time.monotonic()
    running.process = tool.subprocess.Popen(
        [tool.TOOL, *tool.check(bmc)], stdin=tool.subprocess.PIPE, stdout=tool.subprocess.PIPE,
        stderr=tool.subprocess.PIPE, env=tool.clean_environment())
    running.command_line = ""
    time.sleep(0.5)
    ended = running.interrupt()
    assert ended.code == 130
    assert ended.seconds < BOUND * tool.SLOWNESS


def test_ctrl_c_at_the_prompt_gives_the_echo_back(bmc):
    arguments = [a for a in tool.check(bmc) if a not in ("--password-file", "-")]
    terminal = tool.Terminal(arguments)
    terminal.read("Password of admin")
    deadline = time.monotonic() + 5
    while termios.tcgetattr(terminal.descriptor)[3] & termios.ECHO and time.monotonic() < deadline:
        time.sleep(0.01)
    assert not termios.tcgetattr(terminal.descriptor)[3] & termios.ECHO
    before = time.monotonic()
    terminal.type("\x03")
    terminal.read(r"\[exit code 130\]")
    assert time.monotonic() - before < BOUND * tool.SLOWNESS
    assert termios.tcgetattr(terminal.descriptor)[3] & termios.ECHO
    assert terminal.end() == 130
    assert bmc.requests() == []


def test_ctrl_c_takes_the_live_line_off_the_terminal(start_bmc, tmp_path):
    bmc = start_bmc(scenario({"GET /download/*": [{"rate": 20000}]}))
    arguments = [a for a in tool.collect(bmc, tmp_path) if a not in ("--password-file", "-")]
    terminal = tool.Terminal(arguments, {"KEMFFDC_PASSWORD": bmc.password})
    terminal.read(r"download: [\d.]+ KiB of")
    before = time.monotonic()
    terminal.type("\x03")
    assert terminal.end() == 130
    assert time.monotonic() - before < BOUND * tool.SLOWNESS
    last = terminal.text.rpartition("\r\x1b[K")[2]
    assert last == "kemffdc: Interrupted. A BMC that has begun to gather goes on. [exit code 130]\r\n"
    assert tool.files_in(tmp_path) == []


def test_a_signal_that_was_ignored_stays_ignored(start_bmc, tmp_path):
    """As under nohup."""
    bmc = start_bmc({"redfish": {"answers": {"GET */Managers/1": [{"delay": 1}]}}})
    running = tool.Running(
        tool.check(bmc), password=bmc.password,
        preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
    bmc.wait_for("/Managers/1")
    assert running.interrupt(signal.SIGHUP).code == 0
