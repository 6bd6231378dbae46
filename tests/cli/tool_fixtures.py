# SPDX-License-Identifier: Apache-2.0
"""What the conftest.py of each folder takes whose tests run the tool."""

import os

import pytest

import tool


def pytest_configure():
    if not tool.TOOL or not os.access(tool.TOOL, os.X_OK):
        raise pytest.UsageError("the environment variable KEMFFDC must name the tool to test")


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
