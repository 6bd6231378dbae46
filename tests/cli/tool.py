# SPDX-License-Identifier: Apache-2.0
"""The tool as a user runs it, and the emulated BMC that it talks to."""

import contextlib
import itertools
import json
import os
import pathlib
import pty
import re
import select
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

import yaml

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests" / "support"))

import json_contract  # noqa: E402
import warm_bmc  # noqa: E402

TOOL = os.environ.get("KEMFFDC", "")
# Instrumented builds are slower; bounds of time stretch, nothing else.
SLOWNESS = float(os.environ.get("KEMFFDC_SLOWNESS", "1"))

DUMPER = getattr(yaml, "CSafeDumper", yaml.SafeDumper)  # for the scenarios that hold megabytes

SERVICE_ROOT = "GET /redfish/v1/"
EXPORT = "POST */TavrinServiceData.ExportFFDCData"
TASK = "GET */Tasks/1"
SESSIONS = "POST /redfish/v1/SessionService/Sessions"

_FOREIGN = ("REQUESTS_CA_BUNDLE", "CURL_CA_BUNDLE", "SSL_CERT_FILE", "SSL_CERT_DIR")


def await_end(process, seconds=10):
    """Of a process that was told to end; one that does not is killed."""
    try:
        process.wait(seconds)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()


def clean_environment():
    """This process's environment without what would send requests elsewhere, or configure the tool."""
    return {
        name: value
        for name, value in os.environ.items()
        if name not in _FOREIGN
        and not name.lower().endswith("_proxy")
        and not name.startswith(("VARNEX_", "KEMFFDC"))
    } | {"XDG_CONFIG_HOME": "/nonexistent", "XDG_STATE_HOME": f"{_states.name}/others"}


_states = tempfile.TemporaryDirectory(prefix="kemffdc-states-")
_runs = itertools.count()
shared_state = None  # of a test whose runs know of each other; see the fixture `state`


def run_environment():
    """That of a run which knows nothing of earlier ones: no certificate, no history."""
    return {**clean_environment(), "XDG_STATE_HOME": shared_state or f"{_states.name}/{next(_runs)}"}


def free_port(address="127.0.0.1"):
    family = socket.AF_INET6 if ":" in address else socket.AF_INET
    with socket.socket(family) as listener:
        listener.bind((address, 0))
        return listener.getsockname()[1]


def has_ipv6():
    try:
        free_port("::1")
        return True
    except OSError:
        return False


class Bmc:
    """An emulated BMC; ended with stop()."""

    def __init__(self, scenario=None, arguments=()):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="kemffdc-bmc-"))
        words = ["--state-dir", self.folder / "state"]
        (self.folder / "state").mkdir()
        if scenario is not None:
            file = self.folder / "scenario.yaml"
            file.write_text(yaml.dump(scenario, Dumper=DUMPER, allow_unicode=True), encoding="utf-8")
            words += ["--scenario", file]
        self.process = warm_bmc.start([*words, *arguments], clean_environment())
        line = self.process.stdout.readline()
        assert line, "the emulated BMC did not start"
        self.ready = json.loads(line)
        self.address = self.ready["address"]
        self.port = self.ready["redfish"]["port"]
        self.user = self.ready["user"]
        self.password = self.ready["password"]

    def requests(self, method=None):
        file = pathlib.Path(self.ready["requests"])
        lines = file.read_text(encoding="utf-8").splitlines() if file.exists() else []
        found = [json.loads(line) for line in lines]
        return [r for r in found if r["service"] == "redfish" and method in (None, r["method"])]

    def tokens(self):
        """The session tokens that clients have used."""
        found = set()
        for request in self.requests():
            for name, value in request["headers"].items():
                if name.lower() == "x-auth-token":
                    found.add(value)
        return found

    def wait_for(self, path, seconds=20.0):
        """Until a request for a path that holds this text has come in."""
        self.wait_for_request(lambda request: path in request["path"], f"for {path}", seconds)

    def wait_for_request(self, wanted, name, seconds=20.0):
        """Until a request has come in of which `wanted` is true."""
        end = time.monotonic() + seconds * SLOWNESS
        while time.monotonic() < end:
            if any(wanted(request) for request in self.requests()):
                return
            time.sleep(0.02)
        raise AssertionError(f"no request {name} came in")

    def stop(self):
        self.process.stdin.close()
        await_end(self.process)
        self.process.stdout.close()
        shutil.rmtree(self.folder, ignore_errors=True)


class Ended:
    """How a run ended: exit code, texts, seconds, and what stood in the process list meanwhile."""

    def __init__(self, code, out, err, seconds, command_line):
        self.code = code
        self.out = out
        self.err = err
        self.seconds = seconds
        self.command_line = command_line

    @property
    def json(self):
        """The object of --json, or the last line of --events."""
        return json.loads(self.out.split("\n")[-2])

    @property
    def events(self):
        """The lines of --events but the last one."""
        return [json.loads(line) for line in self.out.split("\n")[:-2]]


class Running:
    """A tool that has been started. `password` goes to its standard input as --password-file -."""

    def __init__(self, arguments, password=None, environment=None, prefix=(), **options):
        self.started = time.monotonic()
        self.arguments = list(arguments)
        self.read = b""  # of what it prints, before its end
        self.process = subprocess.Popen(
            [*prefix, TOOL, *arguments],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            env={**run_environment(), **(environment or {})},
            start_new_session=True,
            **options,
        )
        self.command_line = self._read("cmdline")
        with contextlib.suppress(BrokenPipeError):  # who is refused for his options is not asked for a password
            if password is not None:
                self.process.stdin.write(password.encode())
            self.process.stdin.close()
        self.process.stdin = None

    def _read(self, name):
        try:
            return pathlib.Path(f"/proc/{self.process.pid}/{name}").read_bytes().decode("utf-8", "replace")
        except OSError:
            return ""

    def environ(self):
        return self._read("environ")

    def read_line(self):
        """The next line that it prints; it counts as printed in end() too."""
        line = self.process.stdout.readline()
        self.read += line
        return line.decode("utf-8")

    def end(self, seconds=60.0):
        try:
            out, err = self.process.communicate(timeout=seconds * SLOWNESS)
        except subprocess.TimeoutExpired:
            self.process.kill()
            out, err = self.process.communicate()
            raise AssertionError(f"the tool did not end within {seconds} s: {out!r} {err!r}") from None
        out = self.read + out
        json_contract.check_output(self.arguments, self.process.returncode, out.decode("utf-8"))
        if "--output" in self.arguments[:-1]:
            json_contract.check_records(self.arguments[self.arguments.index("--output") + 1])
        return Ended(
            self.process.returncode,
            out.decode("utf-8"),
            err.decode("utf-8"),
            time.monotonic() - self.started,
            self.command_line,
        )

    def interrupt(self, number=signal.SIGINT):
        """Sends a signal; the seconds until the end are measured from here."""
        self.started = time.monotonic()
        self.process.send_signal(number)
        return self.end(10)


def run(arguments, seconds=60.0, **options):
    return Running(arguments, **options).end(seconds)


def collect(bmc, output, *arguments):
    """The arguments of an ordinary, fast run; the password is to be given on standard input."""
    return [
        "collect", "--via", "redfish", bmc.address, "--port", str(bmc.port), "--user", bmc.user,
        "--password-file", "-", "--interval", "0", "--output", str(output), *arguments,
    ]


def check(bmc, *arguments):
    return [
        "check", "--via", "redfish", bmc.address, "--port", str(bmc.port), "--user", bmc.user,
        "--password-file", "-", *arguments,
    ]


def files_in(folder):
    """Everything below a folder, hidden names included."""
    return sorted(str(path.relative_to(folder)) for path in pathlib.Path(folder).rglob("*"))


def archives_in(folder):
    """The names of what was delivered there; each has its record beside it, and nothing else is there."""
    names = {path.name for path in pathlib.Path(folder).iterdir()}
    archives = {name for name in names if name + ".json" in names}
    assert names == archives | {name + ".json" for name in archives}, sorted(names)
    return sorted(archives)


class Terminal:
    """The tool on a pseudo-terminal of its own."""

    def __init__(self, arguments, environment=None, before=()):
        """`before`: a program and its arguments that start the tool."""
        self.text = ""
        self.process, self.descriptor = pty.fork()
        if self.process == 0:
            command = [*before, TOOL, *arguments]
            os.execve(command[0], command, {**run_environment(), "TERM": "xterm", **(environment or {})})
        self.code = None

    def read(self, pattern=None, seconds=20.0):
        """Reads until the pattern stands in the text, or until the tool has ended."""
        end = time.monotonic() + seconds * SLOWNESS
        while pattern is None or not re.search(pattern, self.text):
            left = end - time.monotonic()
            assert left > 0, f"not seen on the terminal: {pattern}: {self.text!r}"
            if select.select([self.descriptor], [], [], left)[0]:
                try:
                    piece = os.read(self.descriptor, 65536)
                except OSError:
                    piece = b""
                if not piece:
                    assert pattern is None, f"not seen on the terminal: {pattern}: {self.text!r}"
                    break
                self.text += piece.decode("utf-8", "replace")
        return self.text

    def type(self, text):
        os.write(self.descriptor, text.encode())

    def end(self):
        self.read()
        self.code = os.waitstatus_to_exitcode(os.waitpid(self.process, 0)[1])
        os.close(self.descriptor)
        return self.code
