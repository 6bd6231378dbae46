# SPDX-License-Identifier: Apache-2.0
"""Fixtures of the Ansible collection's tests."""

import json
import os
import select
import subprocess
import tempfile

import pytest

import controller
import stations
import tool
from tool_fixtures import pytest_configure, start_bmc  # noqa: F401


@pytest.fixture(scope="session")
def collections(tmp_path_factory):
    """A folder with the collection, built and installed as a user does it."""
    folder = tmp_path_factory.mktemp("collections")
    environment = {**tool.clean_environment(), "HOME": str(folder), "ANSIBLE_HOME": str(folder / "home")}

    def galaxy(*arguments):
        command = ["ansible-galaxy", "collection", *arguments]
        done = subprocess.run(command, env=environment, capture_output=True, text=True, timeout=120,
                              check=False)
        assert done.returncode == 0, done.stderr

    galaxy("build", str(controller.COLLECTION), "--output-path", str(folder))
    package = next(folder.glob("varnex-ffdc-*.tar.gz"))
    galaxy("install", str(package), "--offline", "--no-deps", "-p", str(folder / "installed"))
    return folder / "installed"


@pytest.fixture
def ansible(tmp_path, collections):
    """A controller of this test's own."""
    (tmp_path / "controller").mkdir()
    with tempfile.TemporaryDirectory(prefix="ansible-") as sockets:
        yield controller.Controller(tmp_path / "controller", collections, sockets)


@pytest.fixture
def start_fleet(tmp_path):
    """Starts many emulated BMCs that end with the test; what they say when they are ready."""
    started = []

    def start(*arguments):
        process = subprocess.Popen(
            [controller.ROOT / "emulator" / "emulated-fleet", "--state-dir", tmp_path / "fleet", *arguments],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, env=tool.clean_environment(), text=True)
        started.append(process)
        assert select.select([process.stdout], [], [], 60)[0], "the emulated fleet is not ready in time"
        return json.loads(process.stdout.readline())

    yield start
    for process in started:
        process.stdin.close()
        assert process.wait(timeout=60) == 0
        process.stdout.close()


@pytest.fixture
def start_station(tmp_path):
    """Starts stations that Ansible reaches by SSH, until the end of the test."""
    if os.environ.get("VARNEX_PRIVATE_NET") != "private":
        pytest.skip("stations have SSH's own port, to be had in tools/private-net")
    key = stations.make_key(tmp_path)
    started = []

    def start():
        number = len(started) + 1
        try:
            station = stations.Station(tmp_path / f"station{number}", number, key)
        except stations.openssh_sftp.Skip as why:
            pytest.skip(str(why))
        started.append(station)
        return station

    yield start
    for station in started:
        station.stop()
