# SPDX-License-Identifier: Apache-2.0
"""What IPMI tells of the machine: device, system GUID, and inventory (IPMI v2.0, sections 20 and 34;
the layout of the inventory: Platform Management FRU Information Storage Definition v1.0)."""

from __future__ import annotations

import re
import uuid

from bmc.ipmi.settings import Command
from bmc.machine import Machine

GET_DEVICE_ID: Command = (0x06, 0x01)
GET_SYSTEM_GUID: Command = (0x06, 0x37)
_GET_FRU_AREA: Command = (0x0A, 0x10)
_READ_FRU: Command = (0x0A, 0x11)
_PARAMETER_OUT_OF_RANGE = 0xC9
_NOT_PRESENT = 0xCB
_REQUEST_TOO_SHORT = 0xC7
_MOST_AT_ONCE = 200  # bytes of the inventory, per answer
_LONGEST_FIELD = 63
_VENDOR = "Tavrin"


def device_id(machine: Machine) -> bytes:
    """A BMC of IPMI 2.0, of no manufacturer, with an inventory; firmware 4.20.1183 is 4 and 20, and 1183."""
    numbers = [int(n) for n in re.findall(r"\d+", machine.firmware or "")[:3]] + [0, 0, 0]
    major, minor, auxiliary = numbers[:3]
    two_digits = minor % 100
    revision = [min(major, 0x7F), two_digits // 10 << 4 | two_digits % 10]
    more = (auxiliary & 0xFFFFFFFF).to_bytes(4, "big")
    return bytes([0x20, 0x01, *revision, 0x02, 0x88]) + bytes(5) + more


def system_guid(machine: Machine) -> bytes:
    """All sixteen bytes in reverse: IPMI sends the last field first, each with its lowest byte first."""
    try:
        return uuid.UUID(machine.uuid).bytes[::-1]
    except (TypeError, ValueError):  # the scenario wants another text, or none
        return bytes(16)


class FruDevice:
    """The inventory of the server: one product, as bytes that are read piece by piece."""

    def __init__(self, machine: Machine) -> None:
        self.content = _inventory(machine)

    def answer(self, command: Command, request: bytes) -> tuple[int, bytes] | None:
        """Completion code and data; None: another command."""
        if command not in (_GET_FRU_AREA, _READ_FRU):
            return None
        if len(request) < (1 if command == _GET_FRU_AREA else 4):
            return _REQUEST_TOO_SHORT, b""
        if request[0] != 0:
            return _NOT_PRESENT, b""
        if command == _GET_FRU_AREA:
            return 0, len(self.content).to_bytes(2, "little") + b"\0"  # counted in bytes
        return self._read(int.from_bytes(request[1:3], "little"), min(request[3], _MOST_AT_ONCE))

    def _read(self, first: int, count: int) -> tuple[int, bytes]:
        if first >= len(self.content):
            return _PARAMETER_OUT_OF_RANGE, b""
        part = self.content[first:first + count]
        return 0, bytes([len(part)]) + part


def _inventory(machine: Machine) -> bytes:
    """The common header, and behind it the product area."""
    fields = (_VENDOR, machine.model, machine.model, "", machine.serial, "", "")
    area = bytes([1, 0, 25]) + b"".join(map(_field, fields)) + b"\xc1"  # in English; the end
    area += bytes(-(len(area) + 1) % 8)
    area = area[:1] + bytes([(len(area) + 1) // 8]) + area[2:]
    return _summed(bytes([1, 0, 0, 0, 1, 0, 0])) + _summed(area)


def _field(text: str | None) -> bytes:
    """Type 3, Latin-1 text, and its length. One byte alone would be the sign for the end."""
    data = (text or "").encode("latin-1", "replace")[:_LONGEST_FIELD]
    if len(data) == 1:
        data += b" "
    return bytes([0xC0 | len(data)]) + data


def _summed(data: bytes) -> bytes:
    """With the byte that makes the sum 0."""
    return data + bytes([-sum(data) % 256])
