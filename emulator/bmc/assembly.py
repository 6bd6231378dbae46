# SPDX-License-Identifier: Apache-2.0
"""Puts one BMC together: its server, its services, its files."""

from __future__ import annotations

from dataclasses import dataclass, replace
from pathlib import Path
from typing import Any, Mapping

from bmc.archive import FULL, Archive, ArchivePlan, plan_archives
from bmc.certificate import (
    Certificate, given_certificate, kept_certificate, make_certificate, read_change,
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
from bmc.machine import Machine, read_identity
from bmc.record import RequestRecord
from bmc.redfish.download import Downloads
from bmc.redfish.service import RedfishService
from bmc.redfish.settings import read_redfish
from bmc.scenario import Scenario
from bmc.sftp.settings import BMC, CREDENTIAL, read_sftp

SECTIONS = {
    "machine": read_identity, "closed": read_closed, "filtered": read_filtered,
    "certificate_changes_after": read_change,
    "redfish": read_redfish, "ipmi": read_ipmi, "cim": read_cim, "sftp": read_sftp,
}
SFTP_PORT = 115  # where clients of this BMC look for it, whatever they are told


@dataclass(frozen=True)
class Ports:
    """0: a free one. SFTP, where it is None: 115 if the scenario has an sftp section, else none."""

    redfish: int = 0
    ipmi: int = 0
    cim: int = 0
    cim_https: int = 0
    sftp: int | None = None


class Bmc:
    """One BMC at one address. `facts` is complete once it serves."""

    def __init__(
        self, scenario: Scenario, address: str, ports: Ports, folder: Path, *,
        redfish_plain: bool = False, certificate: Path | None = None, new_certificate: bool = False,
        in_band: bool = True,
    ) -> None:
        """What is wrong is told here: ArchiveError, CertificateError, OSError where a port is taken."""
        wanted = scenario.sections["redfish"].archive
        self.facts: dict[str, Any] = {}
        self._scenario = scenario
        self._address = address
        self._ports = ports
        self._folder = folder
        self._plain = redfish_plain
        self._in_band = in_band
        self._machine = Machine(wanted.seed, scenario.sections["machine"])
        self._plans = plan_archives(
            self._machine, wanted.size, wanted.mini_size, wanted.name, wanted.damaged)
        self._record = RequestRecord(folder / "requests.jsonl")
        self._doors = Doors(scenario.sections["closed"], scenario.sections["filtered"])
        self._listener = self._doors.listener("redfish", address, ports.redfish)
        self._certificate = self._choose_certificate(certificate, new_certificate)
        self._account = (scenario.user, scenario.password)

    async def serve(self) -> None:
        """Opens all services; they live as long as the event loop."""
        self.facts = {
            "schema": 1,
            "address": self._address,
            "user": self._scenario.user,
            "password": self._scenario.password,
            "machine": self._machine.facts(),
            "redfish": {
                "port": self._listener.getsockname()[1],
                "scheme": "http" if self._plain else "https",
                **_shown(self._certificate),
            },
        }
        archives = await self._serve_redfish()
        self.facts["ipmi"] = await self._serve_ipmi()
        cim = await serve_cim(
            self._address, (self._ports.cim, self._ports.cim_https), self._scenario, self._doors,
            self._machine, self._certificate, self._record, self._folder / "cim-archives",
        )
        self.facts["cim"] = cim.facts()
        self.facts.update(await self._serve_files())
        self.facts.update(archives)
        self.facts["requests"] = str(self._record.path)

    def _choose_certificate(self, given: Path | None, new: bool) -> Certificate:
        name = f"bmc-{self._machine.label.lower()}"
        if given:
            certificate = given_certificate(given)
        elif new:
            certificate = make_certificate(self._folder, name, self._address)
        else:
            certificate = kept_certificate(self._folder, name, self._address)
        changes_after = self._scenario.sections["certificate_changes_after"]
        if changes_after is None:
            return certificate
        (self._folder / "later").mkdir(exist_ok=True)
        later = make_certificate(self._folder / "later", name, self._address)
        return replace(certificate, changes_after=changes_after, later=later)

    async def _serve_redfish(self) -> dict[str, Any]:
        """What is known of its archives."""
        settings = self._scenario.sections["redfish"]
        archives = {
            kind: plan.make(self._folder / "archives") for kind, plan in self._plans.items()
        }
        later = _later_archives(
            self._plans, settings.download.replaced_after, self._folder / "later-archives")
        downloads = Downloads(archives, later, settings.download)
        service = RedfishService(
            self._scenario, self._machine, archives, downloads, self._folder / "diagnostics")
        if self._doors.is_open("redfish"):
            context = None if self._plain else self._certificate.server_context()
            server = WebServer(service, Script(settings.answers), self._record)
            await server.start(self._listener, context)
        facts: dict[str, Any] = {
            "archive": _described(archives[FULL]),
            "archives": {kind: _described(archive) for kind, archive in archives.items()},
        }
        if later:
            facts["later_archives"] = {kind: _described(a) for kind, a in later.items()}
        return facts

    async def _serve_ipmi(self) -> dict[str, Any]:
        settings = self._scenario.sections["ipmi"]
        commands = Commands(settings, self._account, self._machine)
        facts: dict[str, Any] = {}
        if self._doors.is_open("ipmi"):
            service = await serve_ipmi(
                self._address, self._ports.ipmi, settings, commands, self._account, self._record)
            facts["port"] = service.port
        else:
            facts["port"] = self._doors.hold_udp(self._address, self._ports.ipmi)
        if self._in_band:
            kcs = KcsInterface(commands, self._record)
            await kcs.start()
            facts["kcs"] = kcs.name
        return facts

    async def _serve_files(self) -> dict[str, Any]:
        """Only where it is asked for: its port is a fixed one, and asyncssh takes its time to load."""
        if self._ports.sftp is None and "sftp" not in self._scenario.given:
            return {}
        from bmc.sftp.service import serve_sftp

        port = SFTP_PORT if self._ports.sftp is None else self._ports.sftp
        credential = self._scenario.sections["ipmi"].credential
        accounts = {BMC: self._account, CREDENTIAL: credential or self._account}
        files = await serve_sftp(
            self._address, port, self._scenario.sections["sftp"], accounts, self._machine,
            self._record, self._folder,
        )
        return {"sftp": files.facts()}


def _shown(certificate: Certificate) -> dict[str, Any]:
    shown: dict[str, Any] = {"certificate": str(certificate.path), "sha256": certificate.sha256}
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


def _described(archive: Archive) -> dict[str, Any]:
    return {
        "name": archive.name,
        "size": archive.size,
        "sha256": archive.sha256,
        "path": archive.remote_path,
        "file": str(archive.file),
    }
