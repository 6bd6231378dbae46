# SPDX-License-Identifier: Apache-2.0
"""Emulated BMCs for as long as a `with` block lasts."""

import contextlib
import json
import pathlib
import select
import subprocess

EMULATOR = pathlib.Path(__file__).resolve().parents[2] / "emulator"


def emulated_bmc(folder, scenario="{}"):
    """Yields what the BMC says about itself: address, ports, credentials, archive."""
    file = folder / "scenario.yaml"
    file.write_text(scenario, encoding="utf-8")
    return _emulator("emulated-bmc", "--scenario", file, "--state-dir", folder / "bmc")


@contextlib.contextmanager
def emulated_fleet(folder, *options):
    """Yields what many BMCs say about themselves, with the password of all."""
    with _emulator("emulated-fleet", *options, "--state-dir", folder / "fleet") as fleet:
        password = (folder / "fleet" / "fleet.password").read_text(encoding="utf-8").strip()
        yield {**fleet, "password": password}


@contextlib.contextmanager
def _emulator(program, *options):
    with subprocess.Popen([EMULATOR / program, *options], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          text=True) as process:
        try:
            readable, _, _ = select.select([process.stdout], [], [], 60)
            assert readable, f"{program} did not say that it is ready"
            yield json.loads(process.stdout.readline())
        finally:
            process.stdin.close()
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                process.kill()
