# SPDX-License-Identifier: Apache-2.0
"""A BMC at a link-local IPv6 address, in a network namespace that has nothing but loopback."""

from __future__ import annotations

import shutil
import subprocess
import sys
from pathlib import Path

import pytest

INSIDE = Path(__file__).with_name("link_local_inside.py")
NAMESPACE = ["unshare", "--user", "--map-root-user", "--net"]
SET_UP = "ip link set lo up && ip -6 addr add fe80::1/64 dev lo nodad"


def test_scoped_addresses_work(build_folder):
    if shutil.which("ip") is None or shutil.which("unshare") is None:
        pytest.skip("ip and unshare are needed")
    if subprocess.run([*NAMESPACE, "sh", "-c", SET_UP], capture_output=True).returncode != 0:
        pytest.skip("network namespaces are not allowed here")
    inner = f'{SET_UP} && exec "$0" -B -m pytest -q -p no:cacheprovider "$1"'

    run = subprocess.run(
        [*NAMESPACE, "sh", "-c", inner, sys.executable, INSIDE],
        capture_output=True, text=True, timeout=120,
    )

    assert run.returncode == 0, run.stdout + run.stderr
    assert "3 passed" in run.stdout
