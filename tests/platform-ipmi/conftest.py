# SPDX-License-Identifier: Apache-2.0
"""Emulated BMCs for the tests that need another process or another judge."""

from __future__ import annotations

import json
import os
import sys
from pathlib import Path
from typing import Any, Iterator

import pytest
import yaml

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "support"))

import warm_bmc  # noqa: E402


class Bmc:
    """One emulated BMC with the account admin, "secret"."""

    def __init__(self, folder: Path, ipmi: dict[str, Any], address: str) -> None:
        scenario = folder / "scenario.yaml"
        scenario.write_text(yaml.safe_dump({"user": "admin", "password": "secret", "ipmi": ipmi}))
        self._process = warm_bmc.start(
            ["--scenario", scenario, "--bind", address, "--state-dir", folder / "state"], dict(os.environ))
        ready = self._process.stdout.readline()
        assert ready, "the emulated BMC does not start"
        self.ready = json.loads(ready)
        self.address = address
        self.port = str(self.ready["ipmi"]["port"])

    def requests(self) -> list[dict[str, Any]]:
        return [json.loads(line) for line in Path(self.ready["requests"]).read_text().splitlines()]

    def end(self) -> None:
        self._process.stdin.close()
        self._process.wait(timeout=20)
        self._process.stdout.close()


@pytest.fixture
def start_bmc(tmp_path: Path) -> Iterator[Any]:
    started: list[Bmc] = []

    def start(ipmi: dict[str, Any] | None = None, address: str = "127.0.0.1") -> Bmc:
        folder = tmp_path / f"bmc{len(started)}"
        folder.mkdir()
        started.append(Bmc(folder, ipmi or {}, address))
        return started[-1]

    yield start
    for bmc in started:
        bmc.end()


@pytest.fixture
def build_folder() -> Path:
    """Where the libraries and programs are; ctest says it."""
    folder = os.environ.get("VARNEX_BUILD")
    if folder is None:
        pytest.skip("VARNEX_BUILD does not name a build folder")
    return Path(folder)
