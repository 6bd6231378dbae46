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
from dataclasses import replace
from pathlib import Path
from typing import Any, Mapping

from bmc.archive import FULL, Archive, ArchiveError, ArchivePlan, plan_archives
from bmc.certificate import (
    Certificate, CertificateError, given_certificate, kept_certificate, make_certificate, read_change,
)
from bmc.cim.service import serve_cim
from bmc.cim.settings import read_cim
from bmc.doors import Doors, read_closed, read_filtered
from bmc.http.script import Script
from bmc.http.server import WebServer
from bmc.ipmi.commands import Commands
from bmc.ipmi.kcs import KcsInterface
from bmc.ipmi.service import serve as serve_ipmi
from bmc.ipmi.settings import read_ipmi
from bmc.lifetime import Lifetime
from bmc.machine import Machine, read_identity
from bmc.record import RequestRecord
from bmc.redfish.download import Downloads
from bmc.redfish.service import RedfishService
from bmc.redfish.settings import read_redfish
from bmc.scenario import Scenario, ScenarioError, load
from bmc.sftp.settings import BMC, CREDENTIAL, read_sftp
from bmc.upload import stop_uploads

SECTIONS = {
    "machine": read_identity, "closed": read_closed, "filtered": read_filtered,
    "certificate_changes_after": read_change,
    "redfish": read_redfish, "ipmi": read_ipmi, "cim": read_cim, "sftp": read_sftp,
}
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
    settings, wanted = scenario.sections["redfish"], scenario.sections["redfish"].archive
    machine = Machine(wanted.seed, scenario.sections["machine"])
    plans = plan_archives(machine, wanted.size, wanted.mini_size, wanted.name, wanted.damaged)
    record = RequestRecord(folder / "requests.jsonl")
    doors = Doors(scenario.sections["closed"], scenario.sections["filtered"])
    listener = doors.listener("redfish", options.bind, options.redfish_port)
    lifetime.watch()  # from here on nothing is wrong any more that should be told first
    certificate = _certificate(options, scenario, folder, machine)
    archives = {kind: plan.make(folder / "archives") for kind, plan in plans.items()}
    later = _later_archives(plans, settings.download.replaced_after, folder / "later-archives")
    downloads = Downloads(archives, later, settings.download)
    service = RedfishService(scenario, machine, archives, downloads)
    if doors.is_open("redfish"):
        context = None if options.redfish_plain else certificate.server_context()
        await WebServer(service, Script(settings.answers), record).start(listener, context)
    account = (scenario.user, scenario.password)
    commands = Commands(scenario.sections["ipmi"], account, machine)
    ipmi_port = await _serve_ipmi(options, scenario, doors, commands, account, record)
    kcs = KcsInterface(commands, record)
    await kcs.start()
    cim = await serve_cim(
        options.bind, (options.cim_port, options.cim_https_port), scenario, doors, machine,
        certificate, record, folder / "cim-archives",
    )
    sftp = await _serve_files(options, scenario, machine, account, record, folder)
    _say_ready({
        "schema": 1,
        "address": options.bind,
        "user": scenario.user,
        "password": scenario.password,
        "machine": machine.facts(),
        "redfish": {
            "port": listener.getsockname()[1],
            "scheme": "http" if options.redfish_plain else "https",
            **_shown(certificate),
        },
        "ipmi": {"port": ipmi_port, "kcs": kcs.name},
        "cim": cim.facts(),
        **sftp,
        "archive": _described(archives[FULL]),
        "archives": {kind: _described(archive) for kind, archive in archives.items()},
        **({"later_archives": {kind: _described(archive) for kind, archive in later.items()}} if later else {}),
        "requests": str(record.path),
        "pid": os.getpid(),
    })
    await asyncio.Event().wait()


def _certificate(
    options: argparse.Namespace, scenario: Scenario, folder: Path, machine: Machine
) -> Certificate:
    name = f"bmc-{machine.label.lower()}"
    if options.certificate:
        certificate = given_certificate(options.certificate)
    elif options.new_certificate:
        certificate = make_certificate(folder, name, options.bind)
    else:
        certificate = kept_certificate(folder, name, options.bind)
    changes_after = scenario.sections["certificate_changes_after"]
    if changes_after is None:
        return certificate
    (folder / "later").mkdir(exist_ok=True)
    later = make_certificate(folder / "later", name, options.bind)
    return replace(certificate, changes_after=changes_after, later=later)


def _shown(certificate: Certificate) -> dict[str, Any]:
    shown = {"certificate": str(certificate.path), "sha256": certificate.sha256}
    if certificate.later is not None:
        shown["later"] = {"certificate": str(certificate.later.path), "sha256": certificate.later.sha256}
    return shown


def _later_archives(
    plans: Mapping[str, ArchivePlan], replaced_after: int | None, folder: Path
) -> dict[str, Archive]:
    """Those that take the place of the first ones, where the scenario wants it."""
    if replaced_after is None:
        return {}
    return {kind: plan.later().make(folder) for kind, plan in plans.items()}


async def _serve_ipmi(
    options: argparse.Namespace, scenario: Scenario, doors: Doors, commands: Commands,
    account: tuple[str, str], record: RequestRecord,
) -> int:
    """The port."""
    if not doors.is_open("ipmi"):
        return doors.hold_udp(options.bind, options.ipmi_port)
    service = await serve_ipmi(
        options.bind, options.ipmi_port, scenario.sections["ipmi"], commands, account, record
    )
    return service.port


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
