# SPDX-License-Identifier: Apache-2.0
"""Interrupts at any moment of runs over each channel.

Whatever the moment: the run ends with 130, or it was already done and is whole; its last word is one
JSON object; nothing half is left. To be run in tools/private-net.
"""

import concurrent.futures
import contextlib
import hashlib
import json
import os
import pathlib
import random
import shutil
import signal
import time

import cim_tool
import ipmi_tool
import tool

SEED = 20261121
ROUNDS = int(os.environ.get("KEMFFDC_INTERRUPTS", "200"))
SIGNALS = [signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT, signal.SIGUSR1, signal.SIGUSR2,
           signal.SIGALRM, signal.SIGXCPU]
BOUND = 1.5  # seconds; instrumented builds get more


class Redfish:
    """A run of about a third of a second, most of it a download."""

    def __init__(self, _folder):
        self.bmc = tool.Bmc({"redfish": {
            "archive": {"size": 3000000}, "task_states": ["New", "Running", "Completed"],
            "answers": {"GET /download/*": [{"rate": 20000000, "repeat": True}]}}})
        self.environment = {}

    def arguments(self, output):
        return tool.collect(self.bmc, output, "--json")

    def is_whole(self, account, output):
        whole = output / pathlib.Path(account["path"]).name
        digest = hashlib.sha256(whole.read_bytes()).hexdigest()
        return tool.archives_in(output) == [whole.name] and digest == account["sha256"] and (
            whole.stat().st_size == self.bmc.ready["archive"]["size"])

    def stop(self):
        self.bmc.stop()


class Cim:
    """Three uploads to a file store; nothing comes to this machine."""

    def __init__(self, folder):
        self.folder = folder / "store"
        (self.folder / "in").mkdir(parents=True)
        self.bmc = tool.Bmc()
        self.store = cim_tool.Store(self.folder)
        self.environment = self.store.secrets()

    def arguments(self, _output):
        return cim_tool.collect(self.bmc, self.store.uri("in/"), *self.store.account(), "--json")

    def is_whole(self, account, output):
        return not output.exists() and account["export_uri"] == self.store.uri("in/")

    def stop(self):
        self.store.stop()
        self.bmc.stop()


class Ipmi:
    """Three files by SFTP; the seconds between two polls take a thousandth of their time."""

    def __init__(self, folder):
        files = [{"name": f"{name}.log", "size": 300000} for name in "abc"]
        self.bmc = tool.Bmc(
            ipmi_tool.scenario({"polls": 2}, {"files": {"/download/ffdc/": files}}),
            ["--bind", ipmi_tool.fresh_address()])
        self.environment = ipmi_tool.environment(folder, [ipmi_tool.PLAYED_TIME], PLAYED_SLEEP="1000")

    def arguments(self, output):
        return ipmi_tool.over_lan("collect", self.bmc, "--output", str(output), "--json")

    def is_whole(self, account, output):
        (name,) = tool.archives_in(output)
        whole = output / name
        return str(whole) == account["path"] and ipmi_tool.fetched(whole) == ipmi_tool.served(self.bmc)

    def stop(self):
        self.bmc.stop()


def wait_until_it_listens(process):
    """From here on no signal has its own way of ending the process."""
    end = time.monotonic() + 20 * tool.SLOWNESS
    while process.poll() is None:
        with contextlib.suppress(OSError):
            status = pathlib.Path(f"/proc/{process.pid}/status").read_text(encoding="ascii")
            blocked = int(status.partition("SigBlk:")[2].split()[0], 16)
            if blocked & 1 << signal.SIGINT - 1:
                return
        assert time.monotonic() < end, "the tool does not listen to signals"
        time.sleep(0.001)


def play(channel, output, moments):
    """A run that gets these signals: pairs of seconds since it listens, and a signal. How it ended, and
    the seconds since the last of them.
    """
    running = tool.Running(
        channel.arguments(output), password=channel.bmc.password, environment=channel.environment)
    wait_until_it_listens(running.process)
    begin = last = time.monotonic()
    for seconds, number in moments:
        time.sleep(max(0, begin + seconds - time.monotonic()))
        last = time.monotonic()
        if running.process.poll() is None:
            running.process.send_signal(number)
    ended = running.end(30)
    return ended, time.monotonic() - last


def verdict(channel, output, ended, seconds):
    """Empty where all is well."""
    try:
        account = ended.json
    except json.JSONDecodeError:
        return f"code {ended.code}, no JSON: {ended.out!r} {ended.err!r}"
    if account["exit_code"] != ended.code:
        return f"code {ended.code}, but {account}, {ended.err}"
    if ended.code == 0:
        return "" if channel.is_whole(account, output) else f"not whole: {tool.files_in(output)}"
    if ended.code != 130:
        return f"code {ended.code}: {ended.err}"
    if output.exists():
        return f"left over: {tool.files_in(output)}"
    return "" if seconds < BOUND * tool.SLOWNESS else f"ended after {seconds:.1f} s"


def rounds(kind, count, folder):
    """What went wrong, and how many runs ended with which code."""
    folder.mkdir()
    channel = kind(folder)
    wrong, codes = [], []
    try:
        took = []
        for n in range(2):  # undisturbed, for the time that a run takes
            ended, seconds = play(channel, folder / f"whole{n}", [])
            took.append(seconds)
            assert verdict(channel, folder / f"whole{n}", ended, 0) == "" and ended.code == 0, ended.err
        dice = random.Random(f"{SEED} {kind.__name__}")
        for n in range(count):
            output = folder / str(n)
            moments = [(dice.uniform(0, min(took)), dice.choice(SIGNALS))]
            if dice.random() < 0.3:  # somebody is impatient
                moments.append((moments[0][0] + dice.uniform(0, 0.1), dice.choice(SIGNALS)))
            ended, seconds = play(channel, output, moments)
            codes.append(ended.code)
            fault = verdict(channel, output, ended, seconds)
            if fault:
                wrong.append(f"{kind.__name__} {n} {moments}: {fault}")
            shutil.rmtree(output, ignore_errors=True)
    finally:
        channel.stop()
    return wrong, codes


def test_at_any_moment_a_run_ends_in_order(tmp_path):
    kinds = [Redfish, Cim, Ipmi]
    with concurrent.futures.ThreadPoolExecutor(len(kinds)) as pool:
        runs = [pool.submit(rounds, kind, ROUNDS // len(kinds) + (n < ROUNDS % len(kinds)), tmp_path / kind.__name__)
                for n, kind in enumerate(kinds)]
        results = [run.result() for run in runs]
    assert [fault for wrong, _ in results for fault in wrong] == []
    for kind, (_, codes) in zip(kinds, results):
        assert codes.count(130) > len(codes) / 4, f"{kind.__name__}: hardly any run was interrupted: {codes}"
