# SPDX-License-Identifier: Apache-2.0
"""A worker of a fleet run as its conductor starts it, and the journal that both write."""

import json
import os
import pathlib
import signal
import sqlite3
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))

import tool  # noqa: E402

import json_contract  # noqa: E402


class Fleet:
    """A fleet run in the history of the test, with one host in its plan."""

    def __init__(self, state, folder):
        self.database = state / "history.db"
        self.folder = folder / "bmc"
        if not self.database.exists():  # whatever run makes one
            nobody = ["collect", "--via", "redfish", "127.0.0.1", "--port", "1", "--password-file", "-",
                      "--output", str(folder)]
            assert tool.run(nobody, password="x").code == 3
        with self.connect() as database:
            self.number = database.execute(
                "INSERT INTO fleet_runs (command, tool_version, folder, begun_at) VALUES "
                "('collect', '1', ?, '2026-01-31T23:59:58Z')", (str(folder),)).lastrowid
            database.execute(
                "INSERT INTO fleet_hosts (fleet, number, name, host, state) VALUES (?, 1, 'bmc', 'bmc', 'queued')",
                (self.number,))

    def connect(self):
        database = sqlite3.connect(self.database, timeout=20)
        database.row_factory = sqlite3.Row
        return database

    def host(self):
        return dict(self.connect().execute("SELECT * FROM fleet_hosts WHERE fleet = ?", (self.number,)).fetchone())

    def states(self):
        rows = self.connect().execute("SELECT state FROM fleet_states WHERE fleet = ? ORDER BY id", (self.number,))
        return [row["state"] for row in rows]

    def runs(self):
        """The attempts, the oldest first."""
        return [dict(row) for row in
                self.connect().execute("SELECT * FROM runs WHERE fleet = ? ORDER BY id", (self.number,))]

    def is_sound(self):
        return self.connect().execute("PRAGMA integrity_check").fetchone()[0] == "ok"

    def archives(self):
        """What lies in the host's folder under its final name: whole files alone."""
        return sorted(path for path in self.folder.glob("*") if path.is_file() and path.suffix != ".json"
                      and not path.name.startswith("."))


class Worker:
    """One that runs; `password` None: none is given. Ended with end() or kill()."""

    def __init__(self, arguments, fleet, password, *, gate=False, output=None, prefix=(), environment=None,
                 export_password=None, **more):
        self.lines = []
        self.process = subprocess.Popen(
            [*prefix, tool.TOOL, "fleet-worker"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, env={**tool.run_environment(), **(environment or {})}, start_new_session=True)
        if arguments is not None:
            self.say(json.dumps({
                "arguments": [*arguments, *([] if output is False else ["--output", str(output or fleet.folder)])],
                "password": password, "export_password": export_password, "fleet": fleet.number, "number": 1,
                "gate": gate, **more}))

    def say(self, line):
        self.process.stdin.write(line.encode() + b"\n")
        self.process.stdin.flush()

    def read(self):
        """The next line, as an object; None at the end."""
        line = self.process.stdout.readline()
        if not line:
            return None
        self.lines.append(json_contract.check(line.decode().rstrip("\n"),
                                              "event" if b'"event"' in line else "run"))
        return self.lines[-1]

    def wait_for(self, event, **members):
        """Until such a line has come."""
        while (line := self.read()) is not None:
            if line.get("event") == event and members.items() <= line.items():
                return line
        raise AssertionError(f"no {event} {members}: {self.lines} {self.process.stderr.read()}")

    def reach(self, state):
        return self.wait_for("host-state", state=state)

    def proc(self, name):
        return pathlib.Path(f"/proc/{self.process.pid}/{name}").read_bytes()

    def kill(self):
        self.process.send_signal(signal.SIGKILL)
        self.close()

    def close(self):
        while self.process.stdout.readline():
            continue
        self.process.wait(20)
        self.errors = self.process.stderr.read().decode()
        for stream in (self.process.stdin, self.process.stdout, self.process.stderr):
            try:
                stream.close()
            except BrokenPipeError:
                pass

    def end(self, seconds=60):
        """Its result, when it has ended by itself."""
        timer = time.monotonic() + seconds * tool.SLOWNESS
        while self.read() is not None:
            assert time.monotonic() < timer
        self.close()
        assert self.errors == "", self.errors
        result = self.lines[-1]
        assert "event" not in result and result["exit_code"] == self.process.returncode, result
        return result

    def state_events(self):
        return [line["state"] for line in self.lines if line.get("event") == "host-state"]


def collect(bmc, *arguments):
    return ["collect", "--via", "redfish", bmc.address, "--port", str(bmc.port), "--user", bmc.user,
            *([] if "--interval" in arguments else ["--interval", "0"]), *arguments]


def exports(bmc):
    return [r for r in bmc.requests("POST") if "ExportFFDCData" in r["path"]]


def is_alive(pid):
    try:
        os.kill(pid, 0)
    except OSError:
        return False
    status = pathlib.Path(f"/proc/{pid}/stat").read_text(encoding="utf-8")
    return status.rsplit(")", 1)[1].split()[0] != "Z"
