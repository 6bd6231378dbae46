# SPDX-License-Identifier: Apache-2.0
"""Fixtures of the tool's tests."""

import os
import sys

import pytest

import tool

sys.path.insert(0, str(tool.ROOT / "tests" / "support"))  # weather.py


def pytest_configure():
    if not tool.TOOL or not os.access(tool.TOOL, os.X_OK):
        raise pytest.UsageError("the environment variable KEMFFDC must name the tool to test")


@pytest.fixture
def state(tmp_path, monkeypatch):
    """A state folder for all runs of the test; it need not exist."""
    monkeypatch.setattr(tool, "shared_state", str(tmp_path / "state-home"))
    return tmp_path / "state-home" / "kemffdc"


@pytest.fixture
def start_bmc():
    """Starts emulated BMCs that end with the test."""
    started = []

    def start(scenario=None, *arguments):
        started.append(tool.Bmc(scenario, arguments))
        return started[-1]

    yield start
    for bmc in started:
        bmc.stop()


@pytest.fixture
def bmc(start_bmc):
    """An ordinary BMC."""
    return start_bmc()
