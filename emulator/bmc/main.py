# SPDX-License-Identifier: Apache-2.0
"""Puts the BMC together, says that it is ready, and serves."""

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

from bmc.archive import FULL, Archive, ArchiveError, plan_archives
from bmc.certificate import make_certificate
from bmc.cim.service import serve_cim
from bmc.cim.settings import read_cim
from bmc.http.script import Script
from bmc.http.server import WebServer, listen
from bmc.ipmi.commands import Commands
from bmc.ipmi.kcs import KcsInterface
from bmc.ipmi.service import serve as serve_ipmi
from bmc.ipmi.settings import read_ipmi
from bmc.lifetime import Lifetime
from bmc.machine import Machine
from bmc.record import RequestRecord
from bmc.redfish.service import RedfishService
from bmc.redfish.settings import read_redfish
from bmc.scenario import Scenario, ScenarioError, load
from bmc.sftp.settings import BMC, CREDENTIAL, read_sftp
from bmc.upload import stop_uploads

SECTIONS = {"redfish": read_redfish, "ipmi": read_ipmi, "cim": read_cim, "sftp": read_sftp}
SFTP_PORT = 115  # where clients of this BMC look for it, whatever they are told
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
    settings, wanted = scenario.sections["redfish"], scenario.sections["redfish"].archive
    machine = Machine(wanted.seed)
    plans = plan_archives(machine, wanted.size, wanted.mini_size, wanted.name)
    record = RequestRecord(folder / "requests.jsonl")
    listener = listen(options.bind, options.redfish_port)
    lifetime.watch()  # from here on nothing is wrong any more that should be told first
    certificate = make_certificate(folder, f"bmc-{machine.serial.lower()}", options.bind)
    archives = {kind: plan.make(folder / "archives") for kind, plan in plans.items()}
    server = WebServer(RedfishService(scenario, machine, archives), Script(settings.answers), record)
    await server.start(listener, None if options.redfish_plain else certificate.server_context())
    account = (scenario.user, scenario.password)
    commands = Commands(scenario.sections["ipmi"], account)
    ipmi = await serve_ipmi(
        options.bind, options.ipmi_port, scenario.sections["ipmi"], commands, account, record
    )
    kcs = KcsInterface(commands, record)
    await kcs.start()
    cim = await serve_cim(
        options.bind, (options.cim_port, options.cim_https_port), scenario, machine,
        certificate, record, folder / "cim-archives",
    )
    sftp = await _serve_files(options, scenario, machine, account, record, folder)
    _say_ready({
        "schema": 1,
        "address": options.bind,
        "user": scenario.user,
        "password": scenario.password,
        "redfish": {
            "port": listener.getsockname()[1],
            "scheme": "http" if options.redfish_plain else "https",
            "certificate": str(certificate.path),
            "sha256": certificate.sha256,
        },
        "ipmi": {"port": ipmi.port, "kcs": kcs.name},
        "cim": cim.facts(),
        **sftp,
        "archive": _described(archives[FULL]),
        "archives": {kind: _described(archive) for kind, archive in archives.items()},
        "requests": str(record.path),
        "pid": os.getpid(),
    })
    await asyncio.Event().wait()


async def _serve_files(
    options: argparse.Namespace, scenario: Scenario, machine: Machine,
    account: tuple[str, str], record: RequestRecord, folder: Path,
) -> dict[str, Any]:
    """Only where it is asked for: its port is a fixed one, and asyncssh takes its time to load."""
    if options.sftp_port is None and "sftp" not in scenario.given:
        return {}
    from bmc.sftp.service import serve_sftp

    port = SFTP_PORT if options.sftp_port is None else options.sftp_port
    accounts = {BMC: account, CREDENTIAL: scenario.sections["ipmi"].credential or account}
    files = await serve_sftp(
        options.bind, port, scenario.sections["sftp"], accounts, machine, record, folder
    )
    return {"sftp": files.facts()}


def _described(archive: Archive) -> dict[str, Any]:
    return {
        "name": archive.name,
        "size": archive.size,
        "sha256": archive.sha256,
        "path": archive.remote_path,
        "file": str(archive.file),
    }


def _say_ready(facts: dict[str, Any]) -> None:
    print(json.dumps(facts), flush=True)
