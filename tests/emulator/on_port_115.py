# SPDX-License-Identifier: Apache-2.0
"""Run by test_sftp.py where port 115 is free: one BMC per address, and curl lists its files."""

from __future__ import annotations

import contextlib
import sys
import tempfile
from pathlib import Path

from conftest import Starter, curl

with tempfile.TemporaryDirectory() as name, contextlib.ExitStack() as stack:
    start = Starter(Path(name))
    stack.callback(start.stop_all)
    for address in sys.argv[1:]:
        bmc = start({"password": "secret", "sftp": {}}, "--bind", address)
        host = f"[{address}]" if ":" in address else address
        run = curl("--user", "admin:secret", f"sftp://{host}:115/download/ffdc/")
        print(address, bmc.ready["sftp"]["port"], run.returncode)
