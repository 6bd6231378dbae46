# SPDX-License-Identifier: Apache-2.0
"""A fleet run that is killed at a random moment and resumed, and what must hold then.

As a program: kills.py ROUNDS [COUNT [SEED]]; the environment variable KEMFFDC names the tool.
"""

import hashlib
import json
import os
import pathlib
import random
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))

import tool  # noqa: E402

import warm_bmc  # noqa: E402

GATHERING = 1.0  # seconds, of a BMC
SIZE = 400000  # bytes, of an archive


class EmulatedFleet:
    """Many BMCs in one process; ended with stop()."""

    def __init__(self, folder, count, *arguments):
        self.inventory = folder / "fleet.csv"
        self.process = warm_bmc.start(
            ["--count", count, "--inventory", self.inventory, "--gathering", GATHERING, "--archive-size", SIZE,
             *arguments], tool.clean_environment(), program=warm_bmc.FLEET)
        line = self.process.stdout.readline()
        assert line, "the emulated fleet did not start"
        self.ready = json.loads(line)
        self.bmcs = self.ready["bmcs"]

    def exports(self, bmc):
        file = pathlib.Path(bmc["requests"])
        lines = file.read_text(encoding="utf-8").splitlines() if file.exists() else []
        return sum(r["method"] == "POST" and "ExportFFDCData" in r["path"] for r in map(json.loads, lines))

    def stop(self):
        self.process.stdin.close()
        self.process.wait(20)
        self.process.stdout.close()


def processes_of(session):
    """All that live of a run: workers have sessions of their own, and name their conductor's."""
    found = []
    for entry in pathlib.Path("/proc").iterdir():
        if not entry.name.isdecimal():
            continue
        try:
            words = (entry / "cmdline").read_bytes().split(b"\0")
            state = (entry / "stat").read_text(encoding="utf-8").rsplit(")", 1)[1].split()
        except OSError:
            continue
        if state[0] != "Z" and (int(entry.name) == session or (b"fleet-worker" in words and int(state[1]) == session)):
            found.append(int(entry.name))
    return found


def kill(victims):
    for victim in victims:
        try:
            os.kill(victim, signal.SIGKILL)
        except ProcessLookupError:
            pass


def wait_for_silence(workers):
    """Workers whose conductor was killed end by themselves."""
    end = time.monotonic() + 2 * max(1.0, tool.SLOWNESS / 2)
    for worker in workers:
        while pathlib.Path(f"/proc/{worker}/stat").exists() and b"fleet-worker" in read(f"/proc/{worker}/cmdline"):
            assert time.monotonic() < end, "a worker outlives its conductor"
            time.sleep(0.02)


def read(path):
    try:
        return pathlib.Path(path).read_bytes()
    except OSError:
        return b""


class Round:
    """One run in a folder of its own, killed as `chance` (random.Random) has it."""

    def __init__(self, fleet, folder, chance):
        self.fleet, self.folder, self.chance = fleet, folder, chance
        self.state, self.output = folder / "state", folder / "out"
        self.output.mkdir()
        self.killed = "nobody"

    def start(self, *arguments):
        return subprocess.Popen(
            [tool.TOOL, "fleet", *arguments, "--state-dir", str(self.state), "--events"],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=tool.run_environment(),
            start_new_session=True)

    def collect(self):
        return self.start("collect", str(self.fleet.inventory), "--output", str(self.output), "--transfers", "4",
                          "--credentials", self.fleet.ready["credentials"], "--interval", "1")

    def play(self, longest):
        """Kills within `longest` seconds, and resumes until nobody is killed any more."""
        running = self.collect()
        time.sleep(self.chance.uniform(0, longest))
        processes = processes_of(running.pid)
        workers = [process for process in processes if process != running.pid]
        self.killed = self.chance.choice(["conductor", "worker", "all"])
        kill({"conductor": [running.pid], "all": processes,
              "worker": self.chance.sample(workers, min(1, len(workers)))}[self.killed])
        code, told = self.end(running)
        wait_for_silence(workers)
        if code == 0 and self.killed != "worker":
            self.killed = "nobody"  # it was done before
        if code < 0 and not self.has_ended():
            code, told = self.end(self.start("resume") if self.has_begun() else self.collect())
            assert list(self.output.glob("*/report.json")), "a run that was resumed has its reports"
        elif code < 0:
            code = 0
        assert code == 0, f"{self.killed}: {code} {told}"

    def has_begun(self):
        """Whether the run stands in the history: what is killed before has done nothing."""
        return self.row() is not None

    def has_ended(self):
        """Whether it stands there as one that has ended well: it was killed after its last word."""
        row = self.row()
        return row is not None and row[0] == 0

    def row(self):
        if not (self.state / "history.db").exists():
            return None
        database = sqlite3.connect(self.state / "history.db", timeout=20)
        tables = {row[0] for row in database.execute("SELECT name FROM sqlite_master")}
        row = database.execute("SELECT exit_code FROM fleet_runs").fetchone() if "fleet_runs" in tables else None
        database.close()
        return row

    def end(self, running):
        out, err = running.communicate(timeout=60 * tool.SLOWNESS)
        return running.returncode, err.decode("utf-8", "replace") + out.decode("utf-8", "replace")[-3000:]

    def check(self):
        # A run that was killed at once has left an empty folder.
        run = max(path for path in self.output.iterdir() if path.is_dir())
        for bmc in self.fleet.bmcs:
            exports = self.fleet.exports(bmc)
            assert exports == 1, f"{self.killed}: {bmc['name']} was made to export {exports} times"
            archives = [path for path in (run / bmc["name"]).iterdir() if path.name.endswith(".tar.gz")]
            assert len(archives) == 1, f"{self.killed}: {bmc['name']} has {archives}"
            sha256 = hashlib.sha256(archives[0].read_bytes()).hexdigest()
            assert sha256 == bmc["archive"]["sha256"], f"{self.killed}: {archives[0]} is not whole"
            assert archives[0].with_name(archives[0].name + ".json").exists(), f"{self.killed}: no record"
        database = sqlite3.connect(self.state / "history.db")
        assert database.execute("PRAGMA integrity_check").fetchone()[0] == "ok"
        states = {row[0] for row in database.execute("SELECT state FROM fleet_hosts")}
        assert states == {"done"}, f"{self.killed}: {states}"
        database.close()


def play(rounds, count, seed, longest=4.0):
    """Each round has a fleet of its own. Returns how often each kind of kill was played."""
    chance = random.Random(seed)
    played = {}
    for _ in range(rounds):
        with tempfile.TemporaryDirectory(prefix="kemffdc-kills-") as name:
            folder = pathlib.Path(name)
            fleet = EmulatedFleet(folder, count, "--seed", str(chance.randrange(10**6)))
            try:
                one = Round(fleet, folder, chance)
                one.play(longest)
                one.check()
                played[one.killed] = played.get(one.killed, 0) + 1
            finally:
                fleet.stop()
    return played


if __name__ == "__main__":
    ROUNDS, COUNT, SEED = (list(map(int, sys.argv[1:])) + [24, 1][len(sys.argv) - 2:])[:3]
    print(f"{ROUNDS} rounds of {COUNT} BMCs, seed {SEED}: {play(ROUNDS, COUNT, SEED)}")
