# SPDX-License-Identifier: Apache-2.0
"""The walks of docs/emulator.md, as a reader types them."""

from __future__ import annotations

import contextlib
import os
import re
import signal
import subprocess
from pathlib import Path
from typing import Iterator

import pytest

from conftest import EMULATOR, clean_environment

PAGE = EMULATOR.parent / "docs" / "emulator.md"
SECONDS = 60
WALKS = ["emulator/emulated-bmc --", "X-Auth-Token|SessionService", "ExportFFDCData", "redfishtool -r",
         "wbemcli -nl", "wbemcli cm", "ipmitool -I", "sel elist", "ipmi-sensors --", "curl --insecure"]


def commands() -> str:
    """Every block that begins with a command, from the first walk on, in the order of the page."""
    page = PAGE.read_text(encoding="utf-8")
    page = page[page.index("## Walking it with curl"):]
    blocks = re.findall(r"(?m)(?<=\n\n)(?:    .*\n|\n(?=    ))+", page)
    return "".join(block for block in blocks if re.match(r" +(sleep|curl|redfishtool|cim=|ipmitool) ?", block))


@pytest.fixture
def typed(tmp_path: Path) -> Iterator[str]:
    """What a shell prints that runs all of it; every command must succeed."""
    (tmp_path / "emulator").symlink_to(EMULATOR)
    with open(tmp_path / "printed", "w+", encoding="utf-8") as printed:
        shell = subprocess.Popen(["bash", "-euo", "pipefail", "-c", commands()], cwd=tmp_path, stdout=printed,
                                 stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                                 env=clean_environment(), start_new_session=True)
        try:
            code = shell.wait(SECONDS)
        finally:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(shell.pid, signal.SIGTERM)
        printed.seek(0)
        said = printed.read()
    assert code == 0, said
    yield said


def test_every_walk_works_as_written(typed: str, tmp_path: Path) -> None:
    for part in WALKS:
        assert re.search(part, commands()), part
    assert '"error"' not in typed
    assert "HTTP/1.1 201" in typed and "X-Auth-Token: " in typed
    assert '"Dumping processor 1."' in typed and "ffdc/manifest.json" in typed
    assert len(list((tmp_path / "store").iterdir())) == 1
    assert '-Name="zor/kem4/cimv2"' in typed, "the namespaces"
    assert re.search(r"(?m)^ 0[01]$", typed), "ipmitool's answer"
    assert re.search(r"(?m)^ +28 \|.*\| (Asserted|Deasserted)", typed), "the fortieth event"
    assert re.search(r"(?m)^6 +\| Exhaust Temp +\| Temperature", typed), "FreeIPMI's sensors"
    assert re.search(r"(?m)^-.*\.tgz$", typed), "the listing by SFTP"
