# SPDX-License-Identifier: Apache-2.0
"""The inventory of the server (IPMI v2.0, section 34); its layout: Platform Management FRU Information
Storage Definition v1.0."""

from __future__ import annotations

from bmc.ipmi.requests import NOT_PRESENT, PARAMETER_OUT_OF_RANGE, Handlers, Refused
from bmc.machine import Machine

_MOST_AT_ONCE = 200  # bytes per answer
_LONGEST_FIELD = 63
_VENDOR = "Tavrin"


class Inventory:
    """One product, FRU device 0, as bytes that are read piece by piece."""

    def __init__(self, machine: Machine) -> None:
        self.content = _inventory(machine)

    def handlers(self) -> Handlers:
        return {(0x0A, 0x10): (1, self._area_info), (0x0A, 0x11): (4, self._read)}

    def _area_info(self, request: bytes) -> bytes:
        """Get FRU Inventory Area Info (34.1)."""
        _check_device(request[0])
        return len(self.content).to_bytes(2, "little") + b"\0"  # counted in bytes

    def _read(self, request: bytes) -> bytes:
        """Read FRU Data (34.2)."""
        _check_device(request[0])
        first = int.from_bytes(request[1:3], "little")
        if first >= len(self.content):
            raise Refused(PARAMETER_OUT_OF_RANGE)
        part = self.content[first:first + min(request[3], _MOST_AT_ONCE)]
        return bytes([len(part)]) + part


def _check_device(number: int) -> None:
    if number != 0:
        raise Refused(NOT_PRESENT)


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
