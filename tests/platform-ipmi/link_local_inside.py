# SPDX-License-Identifier: Apache-2.0
"""Run by test_link_local.py where fe80::1 is an address of the loopback interface."""

from __future__ import annotations

import subprocess
from pathlib import Path

import pytest

ADDRESS = "fe80::1"


def ipmi_once(build_folder: Path, host: str, port: str, suite: str) -> subprocess.CompletedProcess:
    return subprocess.run(
        [build_folder / "bin" / "ipmi_once", host, port, "admin", "secret", suite],
        capture_output=True, text=True, timeout=60,
    )


@pytest.mark.parametrize("suite", ["3", "17"])
def test_scope_is_kept_and_the_session_works(build_folder, start_bmc, suite):
    bmc = start_bmc(address=f"{ADDRESS}%lo")

    answer = ipmi_once(build_folder, f"{ADDRESS}%lo", bmc.port, suite)

    assert answer.stdout == "connect 0\nsend 0 0 00\n"
    assert answer.stderr == ""


def test_refused_port_is_noticed_behind_a_scope(build_folder):
    answer = ipmi_once(build_folder, f"[{ADDRESS}%lo]", "9", "17")

    assert answer.stdout == "connect 4\n"
    assert (f"IPMI to {ADDRESS}%lo port 9: refused; nothing listens on that UDP port"
            in answer.stderr)
