# SPDX-License-Identifier: Apache-2.0
"""kemffdc fleet as a user runs it, and the emulated fleet that it talks to."""

import collections
import json
import os
import pathlib
import signal
import sqlite3
import subprocess
import sys
import threading
import time

import yaml

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))

import tool  # noqa: E402

import json_contract  # noqa: E402
import warm_bmc  # noqa: E402

LONG_SECONDS = 120


class EmulatedFleet:
    """Many emulated BMCs, with an inventory and credentials of them; ended with stop()."""

    def __init__(self, folder, *arguments):
        self.inventory = folder / "rack.csv"
        self.process = warm_bmc.start(
            ["--inventory", self.inventory, *arguments], tool.clean_environment(), program=warm_bmc.FLEET)
        ready = self.process.stdout.readline()
        assert ready, "the emulated fleet did not start"
        ready = json.loads(ready)
        self.bmcs = ready["bmcs"]
        self.credentials = pathlib.Path(ready["credentials"])

    def named(self, name):
        return next(bmc for bmc in self.bmcs if bmc["name"] == name)

    def password(self):
        entry = yaml.safe_load(self.credentials.read_text())["fleet"]
        return pathlib.Path(entry["password_file"]).read_text().strip()

    def requests(self, bmc):
        file = pathlib.Path(bmc["requests"])
        lines = file.read_text(encoding="utf-8").splitlines() if file.exists() else []
        return [json.loads(line) for line in lines]

    def exports(self):
        """How many exports each BMC with Redfish was asked for."""
        return {bmc["name"]: sum(is_export(request) for request in self.requests(bmc))
                for bmc in self.bmcs if bmc["kind"] == "redfish"}

    def stop(self):
        self.process.stdin.close()
        tool.await_end(self.process, 20)
        self.process.stdout.close()


def is_export(request):
    return request.get("method") == "POST" and "ExportFFDCData" in request.get("path", "")


class FleetRun:
    """A fleet command that runs; its own process group, as a shell would start it."""

    def __init__(self, arguments, environment=None, stdin=subprocess.DEVNULL):
        self.begun = time.monotonic()
        self.process = subprocess.Popen(
            [tool.TOOL, "fleet", *map(str, arguments)], stdin=stdin, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, text=True, start_new_session=True,
            env={**tool.run_environment(), **(environment or {})})

    def end(self, seconds=LONG_SECONDS):
        self.out, self.err = self.process.communicate(timeout=seconds * tool.SLOWNESS)
        self.code = self.process.returncode
        self.seconds = time.monotonic() - self.begun
        return self

    def workers(self):
        return [int(pid) for pid in children_of(self.process.pid)]

    def kill(self):
        """As SIGKILL does to it alone."""
        workers = self.workers()
        self.process.send_signal(signal.SIGKILL)
        self.process.communicate()
        return workers

    @property
    def result(self):
        return json_contract.check(self.out.splitlines()[-1], "fleet_run")

    def outcomes(self):
        return {host["name"]: host["outcome"] for host in self.result["hosts"]}


def children_of(pid):
    return pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()


def is_alive(pid):
    try:
        return pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] != "Z"
    except OSError:
        return False


def wait_until(condition, seconds=30):
    end = time.monotonic() + seconds * tool.SLOWNESS
    while time.monotonic() < end:
        if condition():
            return
        time.sleep(0.02)
    raise AssertionError("it has not come to that")


class Journal:
    """The history of a test, read from outside."""

    def __init__(self, state):
        self.path = state / "history.db"

    def rows(self, query, *values):
        with sqlite3.connect(f"file:{self.path}?mode=ro", uri=True, timeout=20) as database:
            database.row_factory = sqlite3.Row
            return [dict(row) for row in database.execute(query, values)]

    def states(self):
        """The states that hosts are in: how many are in each."""
        if not self.path.exists():
            return collections.Counter()
        try:
            return collections.Counter(row["state"] for row in self.rows("SELECT state FROM fleet_hosts"))
        except sqlite3.OperationalError:
            return collections.Counter()


class AtOnce:
    """Counts, on the BMCs' side and while a run works, how many gather and how many send at once."""

    def __init__(self, fleet):
        self.fleet = fleet
        self.gathering = 0
        self.sending = 0
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._watch)
        self._thread.start()

    def _watch(self):
        while not self._stop.wait(0.02):
            gathering = 0
            for bmc in self.fleet.bmcs:
                paths = [request.get("path", "") for request in self.fleet.requests(bmc)]
                exported = any("ExportFFDCData" in path for path in paths)
                fetched = any(path.startswith("/download") for path in paths)
                gathering += exported and not fetched
            self.gathering = max(self.gathering, gathering)

    def stop(self):
        self._stop.set()
        self._thread.join()
        return self


def folder_of(ended):
    return pathlib.Path(ended.result["folder"])


def archives(folder, name):
    return [file for file in (folder / name).iterdir() if not file.name.endswith(".json")]
