# SPDX-License-Identifier: Apache-2.0
"""Ansible as an operator uses it: the collection built and installed, plays, and what came of them."""

import json
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[3]
HERE = pathlib.Path(__file__).resolve().parent
COLLECTION = ROOT / "integrations" / "ansible"

sys.path.insert(0, str(ROOT / "tests" / "cli"))

import tool  # noqa: E402


def sanitizers():
    """What an instrumented tool reads of this process's environment."""
    return {name: value for name, value in os.environ.items() if name.endswith("SAN_OPTIONS")}


def gathered(bmc):
    """How often a BMC of emulated-fleet was told to gather."""
    file = pathlib.Path(bmc["requests"])
    lines = file.read_text(encoding="utf-8").splitlines() if file.exists() else []
    requests = [json.loads(line) for line in lines]
    return sum(r.get("method") == "POST" and "Export" in r["path"] for r in requests)


class Played:
    """What came of a play: exit code, what was shown, and the results of tasks."""

    def __init__(self, code, shown, results):
        self.code = code
        self.shown = shown
        self.results = results

    def of(self, task, host=None):
        """The result of a task of this name; of one host where several have it."""
        found = [r for r in self.results if r["task"] == task and host in (None, r["host"])]
        assert len(found) == 1, f"{len(found)} results of {task}: {self.shown}"
        return {**found[0]["result"], "status": found[0]["status"]}


class Playing:
    """An ansible-playbook that has been started."""

    def __init__(self, controller, process):
        self._results = controller.folder / "results"
        self._process = process

    def end(self, seconds=120.0):
        try:
            shown, _ = self._process.communicate(timeout=seconds * tool.SLOWNESS)
        except subprocess.TimeoutExpired:
            self._process.kill()
            shown, _ = self._process.communicate()
            raise AssertionError(f"the play did not end within {seconds} s: {shown}") from None
        lines = self._results.read_text(encoding="utf-8").splitlines() if self._results.exists() else []
        return Played(self._process.returncode, shown, [json.loads(line) for line in lines])


class Controller:
    """The machine that ansible-playbook runs on; everything of it lies in a folder."""

    def __init__(self, folder, collections, sockets):
        """`sockets`: a folder whose name is short enough for sockets in it."""
        self.folder = folder
        self.collections = collections
        self.sockets = sockets

    def environment(self):
        return {
            **tool.clean_environment(), **sanitizers(),
            "HOME": str(self.folder),
            "LC_ALL": "C.UTF-8",
            "ANSIBLE_HOME": str(self.folder / "ansible"),
            "ANSIBLE_LOCAL_TEMP": str(self.folder / "tmp"),
            "ANSIBLE_REMOTE_TEMP": str(self.folder / "remote"),
            "ANSIBLE_COLLECTIONS_PATH": str(self.collections),
            "ANSIBLE_CALLBACK_PLUGINS": str(HERE / "callbacks"),
            "ANSIBLE_CALLBACKS_ENABLED": "results",
            "ANSIBLE_PYTHON_INTERPRETER": "/usr/bin/python3",
            "ANSIBLE_NOCOLOR": "1",
            "ANSIBLE_PIPELINING": "1",
            "ANSIBLE_SSH_CONTROL_PATH_DIR": str(self.sockets),
            "ANSIBLE_RETRY_FILES_ENABLED": "0",
            "VARNEX_RESULTS": str(self.folder / "results"),
        }

    def command(self, plays, inventory, arguments):
        """`plays` are written out, or the name of a playbook; `inventory` as its YAML holds it."""
        (self.folder / "inventory.json").write_text(json.dumps({"all": inventory}), encoding="utf-8")
        if not isinstance(plays, str):
            (self.folder / "plays.json").write_text(json.dumps(plays), encoding="utf-8")
            plays = str(self.folder / "plays.json")
        return ["ansible-playbook", "-i", str(self.folder / "inventory.json"), *arguments, plays]

    def start(self, plays, inventory, *arguments, environment=None):
        (self.folder / "results").unlink(missing_ok=True)
        return Playing(self, subprocess.Popen(
            self.command(plays, inventory, arguments), cwd=self.folder, stdin=subprocess.DEVNULL,
            env={**self.environment(), **(environment or {})}, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, text=True))

    def play(self, plays, inventory, *arguments, **options):
        return self.start(plays, inventory, *arguments, **options).end()

    def tasks(self, tasks, *arguments, **options):
        """Plays tasks on this machine itself; a failed one does not end the play."""
        inventory = {"hosts": {"station": {"ansible_connection": "local"}}}
        play = {"hosts": "all", "gather_facts": False, "tasks": tasks, "ignore_errors": True}
        return self.play([play], inventory, *arguments, **options)
