# SPDX-License-Identifier: Apache-2.0
"""Ctrl-C and its kin, while the tool is blocked in every one of its steps."""

import contextlib
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import termios
import time

import pytest

import tool
import weather
from tool import EXPORT, SERVICE_ROOT, SESSIONS, TASK

BOUND = 1.0  # seconds; instrumented builds get more

GOES_ON = " A BMC that has begun to gather goes on."
GATHERING = ("export", "gather")  # steps
ENDING = [signal.SIGINT, signal.SIGTERM, signal.SIGHUP]
# These too end a process that does not handle them; one step is enough.
MORE_ENDING = [signal.SIGQUIT, signal.SIGUSR1, signal.SIGUSR2, signal.SIGALRM, signal.SIGXCPU]

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


WITH_A_TASK = ("gather", "session", "download begins", "download", "download stalls")


def last_word(step):
    """As a regular expression."""
    goes_on = GOES_ON if step in GATHERING else ""
    continued = r" This run can be continued: kemffdc resume \d+" if step in WITH_A_TASK else ""
    return rf"kemffdc: Interrupted\.{re.escape(goes_on)}{continued} \[exit code 130\]\n\Z"


@pytest.mark.parametrize(
    ("step", "number"),
    [(step, number) for step in sorted(STEPS) for number in ENDING]
    + [("download", number) for number in MORE_ENDING],
    ids=lambda value: getattr(value, "name", value))
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
    assert re.search(last_word(step), ended.err), ended.err
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
    process = subprocess.Popen(
        [tool.TOOL, *tool.check(bmc)], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
        stderr=subprocess.PIPE, env=tool.clean_environment())
    time.sleep(0.5 * tool.SLOWNESS)
    process.send_signal(signal.SIGINT)
    assert process.wait(BOUND * tool.SLOWNESS) == 130
    assert process.communicate()[0] == b""


def has_echo(terminal):
    return bool(termios.tcgetattr(terminal.descriptor)[3] & termios.ECHO)


def at_the_prompt(bmc, **options):
    arguments = [a for a in tool.check(bmc) if a not in ("--password-file", "-")]
    terminal = tool.Terminal(arguments, **options)
    terminal.read("Password of admin")
    assert not has_echo(terminal)
    return terminal


@pytest.mark.parametrize("key", ["\x03", "\x1c"], ids=["ctrl-c", "ctrl-backslash"])
def test_a_key_that_ends_the_prompt_gives_the_echo_back(bmc, key):
    terminal = at_the_prompt(bmc)
    before = time.monotonic()
    terminal.type("half a pass" + key)
    terminal.read(r"\[exit code 130\]")
    assert time.monotonic() - before < BOUND * tool.SLOWNESS
    assert has_echo(terminal)
    assert "kemffdc: Interrupted. [exit code 130]" in terminal.text
    assert terminal.end() == 130
    assert bmc.requests() == []


def test_the_deadline_ends_a_prompt(bmc):
    terminal = tool.Terminal(
        [a for a in tool.check(bmc, "--deadline", "1") if a not in ("--password-file", "-")])
    terminal.read(r"The run has not ended within 0:01 \(--deadline\)\. \[exit code 6\]")
    assert has_echo(terminal)
    assert terminal.end() == 6


# What a shell does with a job: it starts it in the foreground, and continues it once it is stopped.
SHELL = """
import os, signal, sys
signal.signal(signal.SIGTTOU, signal.SIG_IGN)
job = os.fork()
if job == 0:
    os.setpgid(0, 0)
    os.tcsetpgrp(0, os.getpgrp())
    signal.signal(signal.SIGTTOU, signal.SIG_DFL)
    os.execv(sys.argv[1], sys.argv[1:])
_, status = os.waitpid(job, os.WUNTRACED)
os.tcsetpgrp(0, os.getpgrp())
print("stopped", os.WIFSTOPPED(status), flush=True)
sys.stdin.readline()
os.tcsetpgrp(0, job)
os.kill(-job, signal.SIGCONT)
_, status = os.waitpid(job, 0)
sys.exit(os.waitstatus_to_exitcode(status))
"""


def test_a_prompt_that_is_stopped_lends_the_shell_its_echo_and_asks_again(bmc):
    terminal = at_the_prompt(bmc, before=[sys.executable, "-c", SHELL])
    terminal.type("half a pass\x1a")
    terminal.read("stopped True")
    assert has_echo(terminal)
    asked = terminal.text.count("Password of admin")
    terminal.type("fg\n")
    terminal.read("(?s)stopped.*Password of admin")
    assert terminal.text.count("Password of admin") == asked + 1
    assert not has_echo(terminal)
    terminal.type(bmc.password + "\n")
    assert terminal.end() == 0
    assert bmc.password not in terminal.text


def test_a_stop_that_nobody_could_end_stops_nothing(bmc):
    """The tool leads the session: the kernel discards the key's signal."""
    terminal = at_the_prompt(bmc)
    terminal.type("\x1a")
    terminal.read("(?s)Password of admin.*Password of admin")
    assert not has_echo(terminal)
    terminal.type(bmc.password + "\n")
    assert terminal.end() == 0


def test_an_interrupted_check_says_nothing_of_gathering(start_bmc):
    bmc = start_bmc(scenario({SERVICE_ROOT: HANG}))
    running = tool.Running(tool.check(bmc), password=bmc.password)
    bmc.wait_for("/redfish/v1/")
    assert running.interrupt().err.endswith("kemffdc: Interrupted. [exit code 130]\n")


def downloading(start_bmc, output, *arguments, **options):
    """A run in the middle of a download that takes a minute, with its first bytes on the disk."""
    bmc = start_bmc({"redfish": {
        "archive": {"size": 60000000}, "task_states": ["Completed"],
        "answers": {"GET /download/*": [{"rate": 1000000}]}}})
    before = set(output.iterdir()) if output.exists() else set()
    running = tool.Running(tool.collect(bmc, output, *arguments), password=bmc.password, **options)
    end = time.monotonic() + 20 * tool.SLOWNESS
    while not any(size_of(folder) for folder in set(output.glob(".kemffdc-*")) - before):
        assert time.monotonic() < end, "no byte has come"
        time.sleep(0.02)
    return running


def size_of(folder):
    return sum(path.stat().st_size for path in folder.iterdir())


def slow_disk(folder, milliseconds):
    return weather.disk_faults(tool.TOOL, f"unlink:{folder}:*:delay={milliseconds}")


def test_on_a_slow_disk_the_last_word_comes_before_the_folder_goes(start_bmc, tmp_path):
    output = tmp_path / "out"
    running = downloading(start_bmc, output, "--json", environment=slow_disk(output, 1500))
    (work,) = output.iterdir()
    for n in range(2):  # beside the part file
        (work / str(n)).touch()
    running.process.send_signal(signal.SIGINT)
    before = time.monotonic()
    account = json.loads(running.read_line())
    assert time.monotonic() - before < BOUND * tool.SLOWNESS
    assert (account["outcome"], account["exit_code"]) == ("interrupted", 130)
    assert running.process.poll() is None, "the folder is still to be removed"
    ended = running.end(30)
    assert ended.code == 130
    assert re.search(last_word("download"), ended.err)
    assert not output.exists(), tool.files_in(output)


def test_a_second_signal_changes_neither_code_nor_clean_up(start_bmc, tmp_path):
    output = tmp_path / "out"
    running = downloading(start_bmc, output, environment=slow_disk(output, 200))
    for number in [signal.SIGINT, *ENDING, *MORE_ENDING]:
        running.process.send_signal(number)
        time.sleep(0.1)
    ended = running.end(30)
    assert ended.code == 130
    assert ended.err.count("kemffdc: Interrupted.") == 1
    assert not output.exists(), tool.files_in(output)


def test_a_reader_that_has_stopped_reading_keeps_nothing_from_ending(start_bmc, tmp_path):
    output = tmp_path / "out"
    bmc = start_bmc(scenario({"GET /download/*": [{"rate": 20000}]}))
    reading, writing = os.pipe()
    process = subprocess.Popen(
        [tool.TOOL, *tool.collect(bmc, output)], stdin=subprocess.PIPE, stdout=writing, stderr=writing,
        env=tool.clean_environment())
    process.stdin.write(bmc.password.encode())
    process.stdin.close()
    bmc.wait_for("/download")
    os.set_blocking(writing, False)  # which holds for the tool too, so not for long
    with contextlib.suppress(BlockingIOError):
        while True:
            os.write(writing, bytes(4096))
    os.set_blocking(writing, True)
    process.send_signal(signal.SIGINT)
    assert process.wait(10 * tool.SLOWNESS) == 130
    os.close(reading)
    os.close(writing)
    assert not output.exists(), tool.files_in(output)


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
    assert re.fullmatch(last_word("download"), last.replace("\r\n", "\n"))
    assert tool.files_in(tmp_path) == []


def test_a_signal_that_was_ignored_stays_ignored(start_bmc, tmp_path):
    """As under nohup."""
    bmc = start_bmc({"redfish": {"answers": {"GET */Managers/1": [{"delay": 1}]}}})
    running = tool.Running(
        tool.check(bmc), password=bmc.password,
        preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
    bmc.wait_for("/Managers/1")
    assert running.interrupt(signal.SIGHUP).code == 0


def work_folders(output):
    return {path.name for path in output.iterdir() if path.name.startswith(".kemffdc-")}


def test_the_next_run_removes_what_a_killed_one_left_and_nothing_else(start_bmc, tmp_path):
    killed = downloading(start_bmc, tmp_path)
    (left,) = work_folders(tmp_path)
    living = downloading(start_bmc, tmp_path)
    (lives,) = work_folders(tmp_path) - {left}
    killed.process.kill()
    killed.end()
    size = size_of(tmp_path / left)

    bmc = start_bmc()
    ended = tool.run(tool.collect(bmc, tmp_path), password=bmc.password)

    assert ended.code == 0, ended.err
    said = re.findall(r"^Removed (\S+) \((.*)\) from (\S+): a run was killed and left it there\.$", ended.err, re.M)
    assert [(name, folder) for name, _, folder in said] == [(left, str(tmp_path))]
    assert said[0][1] in (f"{size / 1024:.1f} KiB", f"{size / 1048576:.1f} MiB")
    assert work_folders(tmp_path) == {lives}
    assert living.process.poll() is None
    assert living.interrupt().code == 130
    assert tool.archives_in(tmp_path) == [pathlib.Path(ended.out.split()[1]).name]
