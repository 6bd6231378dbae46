# SPDX-License-Identifier: Apache-2.0
"""Puts the CIM object manager together and opens its two ports."""

from __future__ import annotations

import socket
import ssl
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from bmc.cim.access import Account
from bmc.cim.export import Exporter
from bmc.cim.operations import Operations
from bmc.cim.server import CimServer
from bmc.cim.settings import CimSettings
from bmc.certificate import Certificate
from bmc.doors import Doors
from bmc.machine import Machine
from bmc.record import RequestRecord
from bmc.scenario import Scenario


@dataclass(frozen=True)
class CimPorts:
    """Where the CIM object manager is found, and the archives of its data objects by their keys."""

    port: int
    https_port: int
    archives: dict[str, Any]

    def facts(self) -> dict[str, Any]:
        return {"port": self.port, "https_port": self.https_port, "archives": self.archives}


async def serve_cim(
    address: str, ports: tuple[int, int], scenario: Scenario, doors: Doors, machine: Machine,
    certificate: Certificate, record: RequestRecord, folder: Path,
) -> CimPorts:
    """Serves until the process ends; OSError where a port is taken."""
    settings: CimSettings = scenario.sections["cim"]
    names = ("cim", "cim-https")
    plain, secure = (_listener(doors, name, address, port) for name, port in zip(names, ports))
    exporter = Exporter(machine, folder, settings)
    operations = Operations(settings, exporter, machine, scenario.role != "ReadOnly")
    account = Account(scenario.user, scenario.password)
    server = CimServer(settings, account, operations, record, address)
    if doors.is_open("cim"):
        await server.start(plain, None)
    if doors.is_open("cim-https"):
        # TLS 1.2 and nothing else, like the servers that this channel meets.
        await server.start(secure, certificate.server_context(ssl.TLSVersion.TLSv1_2))
    archives = {
        key: {"name": a.name, "size": a.size, "sha256": a.sha256, "file": str(a.file)}
        for key, a in exporter.archives.items()
    }
    return CimPorts(plain.getsockname()[1], secure.getsockname()[1], archives)


def _listener(doors: Doors, name: str, address: str, port: int) -> socket.socket:
    """Head and body of an answer are two segments; neither waits for the other's receipt."""
    listener = doors.listener(name, address, port)
    listener.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    return listener
