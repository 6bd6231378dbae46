# SPDX-License-Identifier: Apache-2.0
"""An emulated BMC for as long as a `with` block lasts."""

import contextlib
import json
import pathlib
import select
import subprocess

EMULATOR = pathlib.Path(__file__).resolve().parents[2] / "emulator" / "emulated-bmc"


@contextlib.contextmanager
def emulated_bmc(folder, scenario="{}"):
    """Yields what the BMC says about itself: address, ports, credentials, archive."""
    file = folder / "scenario.yaml"
    file.write_text(scenario, encoding="utf-8")
    command = [EMULATOR, "--scenario", file, "--state-dir", folder / "bmc"]
    with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          text=True) as process:
        try:
            readable, _, _ = select.select([process.stdout], [], [], 60)
            assert readable, "the emulated BMC did not say that it is ready"
            yield json.loads(process.stdout.readline())
        finally:
            process.stdin.close()
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                process.kill()
