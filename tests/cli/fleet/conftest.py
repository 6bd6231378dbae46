# SPDX-License-Identifier: Apache-2.0
"""Fleets and the commands that work on them, ended with the test that has started them."""

import pytest

from fleet_tool import EmulatedFleet, FleetRun


@pytest.fixture(name="fleet")
def _fleet(tmp_path, state):
    """Starts emulated fleets that end with the test."""
    started = []

    def start(*arguments):
        started.append(EmulatedFleet(tmp_path, *arguments))
        return started[-1]

    yield start
    for one in started:
        one.stop()


@pytest.fixture(name="run")
def _run(tmp_path):
    """Starts fleet commands; whatever still works at the end of the test is killed."""
    started = []

    def start(command, fleet, *arguments, **more):
        words = [command]
        if fleet is not None:
            words += [fleet.inventory, "--credentials", fleet.credentials]
            words += ["--output", tmp_path / "runs"]
        started.append(FleetRun([*words, *arguments, "--json"], **more))
        return started[-1]

    yield start
    for one in started:
        if one.process.poll() is None:
            one.kill()
