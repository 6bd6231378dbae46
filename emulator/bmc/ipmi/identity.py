# SPDX-License-Identifier: Apache-2.0
"""What IPMI tells of the BMC itself: its device and the GUIDs (IPMI v2.0, sections 20.1, 20.8 and 22.14)."""

from __future__ import annotations

import re
import uuid

from bmc.ipmi.settings import Command
from bmc.machine import Machine

GET_DEVICE_ID: Command = (0x06, 0x01)
GET_DEVICE_GUID: Command = (0x06, 0x08)
GET_SYSTEM_GUID: Command = (0x06, 0x37)
_FUNCTIONS = 0x8F  # chassis, inventory, event log, sensor records, sensors


def device_id(machine: Machine) -> bytes:
    """A BMC of IPMI 2.0, of no manufacturer; firmware 4.20.1183 is 4 and 20, and 1183."""
    numbers = [int(n) for n in re.findall(r"\d+", machine.firmware or "")[:3]] + [0, 0, 0]
    major, minor, auxiliary = numbers[:3]
    two_digits = minor % 100
    revision = [min(major, 0x7F), two_digits // 10 << 4 | two_digits % 10]
    more = (auxiliary & 0xFFFFFFFF).to_bytes(4, "big")
    return bytes([0x20, 0x01, *revision, 0x02, _FUNCTIONS]) + bytes(5) + more


def system_guid(machine: Machine) -> bytes:
    """All sixteen bytes in reverse: IPMI sends the last field first, each with its lowest byte first."""
    try:
        return uuid.UUID(machine.uuid).bytes[::-1]
    except (TypeError, ValueError):  # the scenario wants another text, or none
        return bytes(16)
