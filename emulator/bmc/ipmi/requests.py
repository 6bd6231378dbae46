# SPDX-License-Identifier: Apache-2.0
"""How a command's request is answered or refused (IPMI v2.0, section 5.2: completion codes)."""

from __future__ import annotations

from typing import Callable, Mapping

from bmc.ipmi.settings import Command

INVALID_COMMAND = 0xC1
RESERVATION_CANCELLED = 0xC5
REQUEST_TOO_SHORT = 0xC7
PARAMETER_OUT_OF_RANGE = 0xC9
NOT_PRESENT = 0xCB
INVALID_FIELD = 0xCC

# By command: how many bytes a request has at least, and what makes the answer's data of it.
Handlers = Mapping[Command, tuple[int, Callable[[bytes], bytes]]]


class Refused(Exception):
    """Ends a command with a completion code and nothing else."""

    def __init__(self, code: int) -> None:
        super().__init__(f"completion code 0x{code:02X}")
        self.code = code


class Reservation:
    """Who reads piece by piece holds the newest reservation (sections 31.4 and 33.11)."""

    def __init__(self) -> None:
        self._number = 0

    def reserve(self, _: bytes) -> bytes:
        self._number = self._number % 0xFFFF + 1  # 0 is nobody's
        return self._number.to_bytes(2, "little")

    def check(self, request: bytes) -> None:
        """`request` begins with the number that its sender was given."""
        if int.from_bytes(request[:2], "little") != self._number:
            raise Refused(RESERVATION_CANCELLED)


class Records:
    """A list of records that are read by their numbers, whole or in pieces, each with the number of the next."""

    FIRST, LAST = 0x0000, 0xFFFF

    def __init__(self, records: Mapping[int, bytes], reservation: Reservation) -> None:
        self._records = dict(records)
        self._numbers = list(self._records)
        self._reservation = reservation

    def read(self, request: bytes) -> bytes:
        """Reservation, record, first byte, count (0xFF: all) of Get SEL Entry (31.5) and Get SDR (33.12)."""
        number, first, count = int.from_bytes(request[2:4], "little"), request[4], request[5]
        if first:
            self._reservation.check(request)
        place = self._place(number)
        record = self._records[self._numbers[place]]
        if first >= len(record):
            raise Refused(PARAMETER_OUT_OF_RANGE)
        following = self._numbers[place + 1] if place + 1 < len(self._numbers) else self.LAST
        return following.to_bytes(2, "little") + (record[first:] if count == 0xFF else record[first:first + count])

    def _place(self, number: int) -> int:
        if number == self.FIRST and self._numbers:
            return 0
        if number == self.LAST and self._numbers:
            return len(self._numbers) - 1
        if number not in self._records:
            raise Refused(NOT_PRESENT)
        return self._numbers.index(number)
