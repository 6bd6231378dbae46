# SPDX-License-Identifier: Apache-2.0
"""Starts emulated BMCs and talks to them, with nothing of ours in between."""

from __future__ import annotations

import base64
import http.client
import json
import os
import re
import select
import ssl
import subprocess
import sys
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Iterator, Mapping

import pytest
import yaml

TESTS = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(TESTS / "support"))

import warm_bmc  # noqa: E402

EMULATOR = TESTS.parent / "emulator"
PROGRAM = EMULATOR / "emulated-bmc"
FRONT = EMULATOR / "http2-front"
ROOT = "/redfish/v1/"
SESSIONS = "/redfish/v1/SessionService/Sessions"
TASKS = "/redfish/v1/TaskService/Tasks/"
EXPORT = (
    "/redfish/v1/Managers/1/Oem/Tavrin/ServiceData/Actions/TavrinServiceData.ExportFFDCData"
)
FULL_EXPORT = {"InitializationNeeded": True, "DataCollectionType": "ProcessorDump"}
MINI_EXPORT = {"InitializationNeeded": True, "DataCollectionType": "Mini-log"}
NO_USER = "The request requires user authentication which has not yet been provided or invalid."
START_SECONDS = 60.0


def clean_environment() -> dict[str, str]:
    """The environment without what would send requests elsewhere or change who is trusted."""
    unwanted = re.compile(
        r"(?i)^(.*_proxy|REQUESTS_CA_BUNDLE|CURL_CA_BUNDLE|SSL_CERT_FILE|SSL_CERT_DIR)$"
    )
    return {k: v for k, v in os.environ.items() if not unwanted.match(k)}


@dataclass
class Answer:
    status: int
    headers: Mapping[str, str]  # names spelled as received
    body: bytes

    def json(self) -> Any:
        return json.loads(self.body)


class Bmc:
    """One running emulated BMC."""

    def __init__(self, *arguments: str, by_program: bool = False) -> None:
        """`by_program`: started as users start it, not forked off a process that has loaded it."""
        if by_program:
            self.process = subprocess.Popen(
                [str(PROGRAM), *arguments], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                stderr=subprocess.PIPE, env=clean_environment(), text=True,
            )
        else:
            self.process = warm_bmc.start(arguments, clean_environment(), subprocess.PIPE)
        self.ready = json.loads(first_line(self.process))
        self.user, self.password = self.ready["user"], self.ready["password"]
        self.address, self.port = self.ready["address"], self.ready["redfish"]["port"]
        self.archive = self.ready["archive"]

    @property
    def url(self) -> str:
        host = f"[{self.address}]" if ":" in self.address else self.address
        return f"{self.ready['redfish']['scheme']}://{host}:{self.port}"

    def basic(self) -> dict[str, str]:
        pair = f"{self.user}:{self.password}".encode()
        return {"Authorization": "Basic " + base64.b64encode(pair).decode()}

    def connect(self, timeout: float = 20) -> http.client.HTTPConnection:
        if self.ready["redfish"]["scheme"] == "http":
            return http.client.HTTPConnection(self.address, self.port, timeout=timeout)
        return http.client.HTTPSConnection(
            self.address, self.port, timeout=timeout, context=trusting_everybody()
        )

    def ask(
        self, method: str, path: str, body: Any = None, headers: Mapping[str, str] | None = None,
        anonymous: bool = False, timeout: float = 20,
    ) -> Answer:
        """One request; with basic authentication unless anonymous; a dict goes as JSON."""
        data = json.dumps(body) if isinstance(body, (dict, list)) else body
        all_headers = {**({} if anonymous else self.basic()), **(headers or {})}
        connection = self.connect(timeout)
        try:
            connection.request(method, path, body=data, headers=all_headers)
            got = connection.getresponse()
            return Answer(got.status, dict(got.getheaders()), got.read())
        finally:
            connection.close()

    def get(self, path: str, **more: Any) -> Answer:
        return self.ask("GET", path, **more)

    def post(self, path: str, body: Any, **more: Any) -> Answer:
        return self.ask("POST", path, body, **more)

    def poll_to_end(self, path: str, limit: int = 200) -> Answer:
        """Polls a task until it is at an end."""
        for _ in range(limit):
            answer = self.get(path)
            if answer.json()["TaskState"] in ("Completed", "Exception", "Killed"):
                return answer
            time.sleep(0.05)
        raise AssertionError(f"{path} did not end")

    def requests(self) -> list[dict[str, Any]]:
        lines = Path(self.ready["requests"]).read_text().splitlines()
        return [json.loads(line) for line in lines]

    def close_input(self) -> None:
        assert self.process.stdin
        self.process.stdin.close()

    def stop(self) -> int:
        """Ends it the usual way and returns its exit code."""
        if self.process.stdin and not self.process.stdin.closed:
            self.close_input()
        try:
            return self.process.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            raise


def outcome(*arguments: str, program: Path = PROGRAM) -> subprocess.CompletedProcess:
    """Of a program that does not come to serve."""
    return warm_bmc.run(arguments, clean_environment(), program)


def first_line(process: subprocess.Popen | warm_bmc.Process) -> str:
    """The ready line, or a failure that says what the program complained about."""
    assert process.stdout and process.stderr
    ready, _, _ = select.select([process.stdout], [], [], START_SECONDS)
    line = process.stdout.readline() if ready else ""
    if not line:
        process.kill()
        process.wait()
        raise AssertionError(f"no ready line: {process.stderr.read()}")
    return line


def trusting_everybody() -> ssl.SSLContext:
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    context.check_hostname = False
    context.verify_mode = ssl.CERT_NONE
    return context


class Starter:
    """Starts BMCs for one test and ends them after it."""

    def __init__(self, folder: Path, by_program: bool = False) -> None:
        self._folder = folder
        self._by_program = by_program
        self._running: list[Bmc] = []

    def __call__(self, scenario: Any = None, *arguments: str) -> Bmc:
        """`scenario` is a mapping, YAML text, the path of a file, or None."""
        options = list(arguments)
        if scenario is not None:
            options += ["--scenario", str(self.scenario_file(scenario))]
        bmc = Bmc(*options, by_program=self._by_program)
        self._running.append(bmc)
        return bmc

    def scenario_file(self, scenario: Any) -> Path:
        if isinstance(scenario, Path):
            return scenario
        file = self._folder / f"scenario{len(list(self._folder.glob('scenario*')))}.yaml"
        file.write_text(scenario if isinstance(scenario, str) else yaml.safe_dump(scenario))
        return file

    def answers(self, answers: Mapping[str, Any], **more: Any) -> Bmc:
        """A BMC with scripted answers."""
        return self({"redfish": {"answers": dict(answers), **more}})

    def stop_all(self) -> None:
        for bmc in self._running:
            bmc.stop()


@pytest.fixture
def start(tmp_path: Path) -> Iterator[Starter]:
    starter = Starter(tmp_path)
    yield starter
    starter.stop_all()


@pytest.fixture
def start_program(tmp_path: Path) -> Iterator[Starter]:
    """For what forking a process that has loaded the program could change."""
    starter = Starter(tmp_path, by_program=True)
    yield starter
    starter.stop_all()


@pytest.fixture(scope="module")
def bmc(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Bmc]:
    """One BMC without a scenario for all tests of a module that leave no traces in it."""
    starter = Starter(tmp_path_factory.mktemp("bmc"))
    yield starter()
    starter.stop_all()


def links_of(value: Any) -> Iterator[str]:
    """Every link in a document."""
    if isinstance(value, dict):
        for name, member in value.items():
            if name in ("@odata.id", "Uri"):
                yield member
            else:
                yield from links_of(member)
    elif isinstance(value, list):
        for member in value:
            yield from links_of(member)


def peer(name: str) -> tuple[Path, dict[str, str]]:
    """A daemon out of the peers' folder, and the environment that finds its libraries."""
    root = os.environ.get("VARNEX_PEERS")
    if not root:
        pytest.skip("VARNEX_PEERS is not set: the peers were not fetched")
    program = Path(root, name)
    assert program.exists(), f"{program} is missing"
    libraries = ":".join(str(folder) for folder in Path(root, "usr/lib").glob("*-linux-gnu"))
    return program, {**clean_environment(), "LD_LIBRARY_PATH": libraries}


def curl(*arguments: str, timeout: float = 60) -> subprocess.CompletedProcess:
    """curl without its owner's configuration, certificates unverified, quiet but for errors."""
    return subprocess.run(
        ["curl", "--disable", "--insecure", "--silent", "--show-error", *arguments],
        capture_output=True, timeout=timeout, env=clean_environment(),
    )
