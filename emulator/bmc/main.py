# SPDX-License-Identifier: Apache-2.0
"""The command line of one BMC: starts it, says that it is ready, and serves."""

from __future__ import annotations

import argparse
import asyncio
import ipaddress
import json
import logging
import os
import sys
import tempfile
from pathlib import Path
from typing import Any

from bmc.archive import ArchiveError
from bmc.assembly import SECTIONS, SFTP_PORT, Bmc, Ports
from bmc.certificate import CertificateError
from bmc.lifetime import Lifetime
from bmc.scenario import Scenario, ScenarioError, load
from bmc.upload import stop_uploads

_BAD_START, _USAGE = 1, 2


def main(arguments: list[str]) -> int:
    """Runs until standard input closes. 1: cannot start; 2: bad option or scenario."""
    logging.basicConfig(format="%(name)s: %(message)s", level=logging.WARNING)
    for noisy in ("asyncio", "aiohttp.server"):  # what clients do wrong is no news here
        logging.getLogger(noisy).setLevel(logging.CRITICAL + 1)
    options = _options(arguments)
    try:
        scenario = load(options.scenario, SECTIONS)
    except ScenarioError as error:
        print(_complaint(error), file=sys.stderr)
        return _USAGE
    try:
        folder, temporary = _state_folder(options.state_dir)
    except OSError as error:
        print(_complaint(error), file=sys.stderr)
        return _BAD_START
    lifetime = Lifetime(folder if temporary else None)
    lifetime.before_end(stop_uploads)
    try:
        asyncio.run(_run(options, scenario, folder, lifetime))
    except ArchiveError as error:
        lifetime.end(_USAGE, _complaint(f"{options.scenario}: {error}"))
    except CertificateError as error:
        lifetime.end(_USAGE, _complaint(error))
    except OSError as error:
        lifetime.end(_BAD_START, _complaint(error))
    return 0


def _options(arguments: list[str]) -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="emulated-bmc", description=__doc__)
    parser.add_argument("--scenario", type=Path, metavar="FILE", help="what the BMC is to do (YAML)")
    parser.add_argument("--bind", type=_address, default="127.0.0.1", metavar="ADDRESS")
    parser.add_argument("--redfish-port", type=_port, default=0, metavar="N", help="0: a free one")
    parser.add_argument("--ipmi-port", type=_port, default=0, metavar="N", help="UDP; 0: a free one")
    parser.add_argument("--cim-port", type=_port, default=0, metavar="N", help="0: a free one")
    parser.add_argument("--cim-https-port", type=_port, default=0, metavar="N", help="0: a free one")
    parser.add_argument(
        "--sftp-port", type=_port, metavar="N",
        help="0: a free one; unless told %d where the scenario has an sftp section, else none" % SFTP_PORT,
    )
    parser.add_argument(
        "--certificate", type=Path, metavar="FILE",
        help="certificate and key (PEM) of the HTTPS ports; default: that of the last start in DIR, or a new one",
    )
    parser.add_argument(
        "--new-certificate", action="store_true", help="a new one, also where DIR has one already"
    )
    parser.add_argument("--redfish-plain", action="store_true", help="HTTP instead of HTTPS")
    parser.add_argument(
        "--state-dir", type=Path, metavar="DIR",
        help="where certificate, archives and requests are kept; default: a folder that goes at the end",
    )
    return parser.parse_args(arguments)


def _address(text: str) -> str:
    try:
        ipaddress.ip_address(text.partition("%")[0])
    except ValueError:
        raise argparse.ArgumentTypeError(f"{text!r} is no IPv4 or IPv6 address") from None
    return text


def _port(text: str) -> int:
    if not text.isdecimal() or int(text) > 65535:
        raise argparse.ArgumentTypeError(f"{text!r} is no port (0 to 65535)")
    return int(text)


def _state_folder(given: Path | None) -> tuple[Path, bool]:
    """The folder and whether it is ours to remove."""
    if given is None:
        return Path(tempfile.mkdtemp(prefix="emulated-bmc-")), True
    given.mkdir(parents=True, exist_ok=True)
    return given.resolve(), False


def _complaint(reason: Exception | str) -> str:
    return f"emulated-bmc: {reason}"


async def _run(
    options: argparse.Namespace, scenario: Scenario, folder: Path, lifetime: Lifetime
) -> None:
    ports = Ports(
        options.redfish_port, options.ipmi_port, options.cim_port, options.cim_https_port, options.sftp_port
    )
    bmc = Bmc(
        scenario, options.bind, ports, folder, redfish_plain=options.redfish_plain,
        certificate=options.certificate, new_certificate=options.new_certificate,
    )
    lifetime.watch()  # from here on nothing is wrong any more that should be told first
    await bmc.serve()
    _say_ready({**bmc.facts, "pid": os.getpid()})
    await asyncio.Event().wait()


def _say_ready(facts: dict[str, Any]) -> None:
    print(json.dumps(facts), flush=True)
