# SPDX-License-Identifier: Apache-2.0
"""Fixtures of the tool's tests."""

import sys

import pytest

import tool
from tool_fixtures import pytest_configure, start_bmc  # noqa: F401

sys.path.insert(0, str(tool.ROOT / "tests" / "support"))  # weather.py


@pytest.fixture
def state(tmp_path, monkeypatch):
    """A state folder for all runs of the test; it need not exist."""
    monkeypatch.setattr(tool, "shared_state", str(tmp_path / "state-home"))
    return tmp_path / "state-home" / "kemffdc"


@pytest.fixture
def bmc(start_bmc):
    """An ordinary BMC."""
    return start_bmc()
