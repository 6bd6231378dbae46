# SPDX-License-Identifier: Apache-2.0
"""Many BMCs in one process, each with an address, a serial number and a certificate of its own."""

from __future__ import annotations

import argparse
import asyncio
import csv
import json
import logging
import os
import resource
import secrets
import sys
import tempfile
from pathlib import Path
from typing import Any, Mapping, Sequence

import yaml

from bmc.archive import ArchiveError
from bmc.assembly import SECTIONS, SFTP_PORT, Bmc, Ports
from bmc.fleet_plan import KINDS, USER, FleetWishes, PlanError, PlannedBmc, plan, read_mix
from bmc.lifetime import Lifetime
from bmc.scenario import from_data
from bmc.upload import stop_uploads

STANDARD = Ports(redfish=443, ipmi=623, cim=5988, cim_https=5989)
CREDENTIAL, STORE_USER = "fleet", "ffdc"
_BAD_START, _USAGE = 1, 2
_FILES_EACH = 12  # descriptors that a BMC takes at rest and while it is asked
_MOST = 10_000


def main(arguments: list[str]) -> int:
    """Runs until standard input closes. 1: cannot start; 2: bad option."""
    logging.basicConfig(format="%(name)s: %(message)s", level=logging.WARNING)
    for noisy in ("asyncio", "aiohttp.server", "asyncssh"):  # what clients do wrong is no news here
        logging.getLogger(noisy).setLevel(logging.CRITICAL + 1)
    options = _options(arguments)
    temporary = options.state_dir is None
    try:
        fleet = plan(_wishes(options))
        folder = Path(tempfile.mkdtemp(prefix="emulated-fleet-")) if temporary else options.state_dir
        folder.mkdir(parents=True, exist_ok=True)
        _allow_files(len(fleet) * _FILES_EACH)
    except (PlanError, OSError) as error:
        print(f"emulated-fleet: {error}", file=sys.stderr)
        return _USAGE if isinstance(error, PlanError) else _BAD_START
    lifetime = Lifetime(folder if temporary else None)
    lifetime.before_end(stop_uploads)
    try:
        asyncio.run(_run(options, fleet, folder.resolve(), lifetime))
    except ArchiveError as error:
        lifetime.end(_USAGE, f"emulated-fleet: --archive-size: {error}")
    except OSError as error:
        lifetime.end(_BAD_START, f"emulated-fleet: {error}")
    return 0


def _options(arguments: list[str]) -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="emulated-fleet", description=__doc__)
    parser.add_argument("--count", type=int, default=24, metavar="N", help="how many BMCs [24]")
    parser.add_argument(
        "--mix", default="redfish=100", metavar="SHARES",
        help=f"kinds ({', '.join(KINDS)}) in their shares: redfish=60,ipmi=20,cim=20",
    )
    parser.add_argument(
        "--faults", type=_percent, default=0.0, metavar="PERCENT",
        help="BMCs that have a fault: wrong password, silent, busy, slow, dies while it gathers, cut download",
    )
    parser.add_argument("--seed", type=int, default=1, metavar="N", help="the same one makes the same fleet [1]")
    parser.add_argument("--gathering", type=float, default=2.0, metavar="SECONDS", help="that it takes [2]")
    parser.add_argument("--archive-size", type=int, metavar="BYTES", help="default: as large as the content")
    parser.add_argument(
        "--standard-ports", action="store_true",
        help="443, 623, 5989 and %d at each address, in tools/private-net; default: free ones" % SFTP_PORT,
    )
    parser.add_argument("--inventory", type=Path, metavar="FILE", help="written as .csv or .yaml")
    parser.add_argument(
        "--operations", action="store_true", help="the inventory names each BMC's operation over Redfish, too"
    )
    parser.add_argument("--state-dir", type=Path, metavar="DIR", help="default: a folder that goes at the end")
    return parser.parse_args(arguments)


def _percent(text: str) -> float:
    value = float(text.rstrip("%"))
    if not 0 <= value <= 100:
        raise argparse.ArgumentTypeError(f"{text!r} is no percentage")
    return value


def _wishes(options: argparse.Namespace) -> FleetWishes:
    mix = read_mix(options.mix)
    if not 1 <= options.count <= _MOST:
        raise PlanError(f"--count: 1 to {_MOST}, not {options.count}")
    if mix.get("ipmi") and not options.standard_ports:
        raise PlanError(
            f"--mix: ipmi hands out its files on port {SFTP_PORT} alone: take --standard-ports, "
            "in a network that tools/private-net makes"
        )
    if options.inventory and options.inventory.suffix not in (".csv", ".yaml"):
        raise PlanError(f"--inventory: {options.inventory} is neither .csv nor .yaml")
    return FleetWishes(
        options.count, mix, options.faults, options.seed, options.gathering, options.archive_size,
        secrets.token_hex(8),
    )


def _allow_files(wanted: int) -> None:
    """As many open files as the system lets us have."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    if soft < wanted:
        resource.setrlimit(resource.RLIMIT_NOFILE, (min(wanted, hard), hard))


async def _run(
    options: argparse.Namespace, fleet: Sequence[PlannedBmc], folder: Path, lifetime: Lifetime
) -> None:
    lifetime.watch()
    served = []
    for planned in fleet:
        own = folder / planned.name
        own.mkdir(exist_ok=True)
        scenario = from_data(planned.scenario, SECTIONS)
        ports = STANDARD if options.standard_ports else Ports()
        bmc = Bmc(scenario, planned.address, ports, own, in_band=False)
        await bmc.serve()
        served.append(_described(planned, bmc.facts))
    password = fleet_password(fleet)
    store = await _serve_store(folder, password) if any(p.kind == "cim" for p in fleet) else None
    credentials = _write_credentials(folder, password)
    if options.inventory:
        _write_inventory(options.inventory, options.operations, served, store, credentials)
    print(json.dumps({
        "schema": 1, "user": USER, "credentials": str(credentials), "store": store,
        "inventory": str(options.inventory) if options.inventory else None,
        "bmcs": served, "pid": os.getpid(),
    }), flush=True)
    await asyncio.Event().wait()


def fleet_password(fleet: Sequence[PlannedBmc]) -> str:
    """That of the BMCs which have no other one."""
    usual = [p.scenario["password"] for p in fleet if p.fault != "wrong-password"]
    return usual[0] if usual else secrets.token_hex(8)


def _described(planned: PlannedBmc, facts: Mapping[str, Any]) -> dict[str, Any]:
    port = {
        "redfish": facts["redfish"]["port"],
        "ipmi": facts["ipmi"]["port"],
        "cim": facts["cim"]["https_port"],
    }[planned.via]
    return {
        "name": planned.name, "address": planned.address, "kind": planned.kind, "via": planned.via,
        "operation": planned.operation, "fault": planned.fault, "port": port,
        "serial": facts["machine"]["serial"], "archive": facts["archive"],
        "sha256": facts["redfish"]["sha256"], "requests": facts["requests"],
    }


async def _serve_store(folder: Path, password: str) -> dict[str, Any]:
    """The SFTP file store that BMCs with CIM upload to."""
    from bmc.store import serve_store

    kept = folder / "store"
    kept.mkdir(exist_ok=True)
    port = await serve_store("127.0.0.1", 0, kept, STORE_USER, password)
    secret = _write_secret(folder / "store.password", password)
    return {
        "uri": f"sftp://127.0.0.1:{port}/", "user": STORE_USER, "password_file": str(secret),
        "folder": str(kept),
    }


def _write_secret(path: Path, text: str) -> Path:
    path.touch(mode=0o600)
    path.chmod(0o600)
    path.write_text(text + "\n")
    return path


def _write_credentials(folder: Path, password: str) -> Path:
    """A file of credentials as `kemffdc fleet` reads it."""
    secret = _write_secret(folder / "fleet.password", password)
    entry = {CREDENTIAL: {"user": USER, "password_file": str(secret)}}
    return _write_secret(folder / "credentials.yaml", yaml.safe_dump(entry).strip())


def _write_inventory(
    path: Path, operations: bool, served: Sequence[Mapping[str, Any]], store: Mapping[str, Any] | None,
    credentials: Path,
) -> None:
    write = _write_csv if path.suffix == ".csv" else _write_yaml
    write(path, operations, served, store, credentials)


def _write_csv(
    path: Path, operations: bool, served: Sequence[Mapping[str, Any]], store: Mapping[str, Any] | None, _: Path
) -> None:
    """As a spreadsheet in a country with decimal commas writes it."""
    columns = ["name", "address", "via", "port", "group", "credential"]
    export = {"export.uri": "uri", "export.user": "user", "export.password_file": "password_file"}
    with path.open("w", newline="", encoding="utf-8-sig") as file:
        table = csv.writer(file, delimiter=";", lineterminator="\r\n")
        table.writerow(columns + (["operation"] if operations else []) + (list(export) if store else []))
        for bmc in served:
            row = [bmc["name"], bmc["address"], bmc["via"], bmc["port"], bmc["kind"], CREDENTIAL]
            row += [bmc["operation"]] if operations else []
            uploads = store is not None and bmc["kind"] == "cim"
            table.writerow(row + [store[name] if uploads else "" for name in export.values()] if store else row)


def _write_yaml(
    path: Path, operations: bool, served: Sequence[Mapping[str, Any]], store: Mapping[str, Any] | None,
    credentials: Path,
) -> None:
    groups: dict[str, Any] = {}
    for kind in KINDS:
        members = [bmc for bmc in served if bmc["kind"] == kind]
        if not members:
            continue
        groups[kind] = {"via": members[0]["via"]}
        if operations and members[0]["operation"]:
            groups[kind]["operation"] = members[0]["operation"]
        if kind == "cim" and store:
            groups[kind]["export"] = {k: store[k] for k in ("uri", "user", "password_file")}
        groups[kind]["hosts"] = {
            bmc["name"]: {"address": bmc["address"], "port": bmc["port"]} for bmc in members
        }
    document = {
        "credentials": str(credentials),
        "defaults": {"credential": CREDENTIAL},
        "groups": groups,
    }
    path.write_text(yaml.safe_dump(document, sort_keys=False), encoding="utf-8")
