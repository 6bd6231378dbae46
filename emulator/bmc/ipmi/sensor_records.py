# SPDX-License-Identifier: Apache-2.0
"""The repository of sensor data records, which says what a sensor is and how its bytes are read (IPMI v2.0,
sections 33 and 43)."""

from __future__ import annotations

from typing import Sequence

from bmc.ipmi.requests import Handlers, Records, Reservation
from bmc.ipmi.sensors import THRESHOLDS, Gauge, Sensor

_VERSION = 0x51
_FULL, _EVENT_ONLY = 0x01, 0x03
_BMC = 0x20  # the owner of all sensors
_RESERVE_SUPPORTED = 0x02
_INITIALIZED, _REARMS_ITSELF, _THRESHOLDS_READABLE = 0x7F, 0x40, 0x04
# The bits of an event mask: going low below a lower threshold, going high above an upper one (table 42-2).
_GOING_BEYOND = {"lnc": 0, "lc": 2, "lnr": 4, "unc": 7, "uc": 9, "unr": 11}


class SensorRecords:
    """All records; they are what they are as long as the BMC lives."""

    def __init__(self, sensors: Sequence[Sensor], made: int) -> None:
        """`made`: seconds since 1970."""
        self._made = made.to_bytes(4, "little")
        self._reservation = Reservation()
        records = {number: _record(number, sensor) for number, sensor in enumerate(sensors, 1)}
        self._count = len(records)
        self._records = Records(records, self._reservation)

    def handlers(self) -> Handlers:
        return {
            (0x0A, 0x20): (0, self._info),
            (0x0A, 0x22): (0, self._reservation.reserve),
            (0x0A, 0x23): (6, self._records.read),
        }

    def _info(self, _: bytes) -> bytes:
        """Get SDR Repository Info (33.9); nothing can be added."""
        count = self._count.to_bytes(2, "little")
        return bytes([_VERSION]) + count + bytes(2) + self._made * 2 + bytes([_RESERVE_SUPPORTED])


def _record(number: int, sensor: Sensor) -> bytes:
    is_gauge = isinstance(sensor, Gauge)
    body = bytes([_BMC, 0, sensor.number, *sensor.entity])
    body += _full(sensor) if isinstance(sensor, Gauge) else _event_only(sensor)
    name = sensor.name.encode("latin-1")
    body += bytes([0xC0 | len(name)]) + name
    return number.to_bytes(2, "little") + bytes([_VERSION, _FULL if is_gauge else _EVENT_ONLY, len(body)]) + body


def _full(gauge: Gauge) -> bytes:
    """What a full sensor record (43.1) has between entity and name."""
    events = sum(1 << _GOING_BEYOND[name] for name in gauge.thresholds)
    lower, upper = gauge.mask & 0b111, gauge.mask >> 3
    kind = bytes([_INITIALIZED, _REARMS_ITSELF | _THRESHOLDS_READABLE, gauge.type, gauge.event_kind])
    masks = b"".join(word.to_bytes(2, "little") for word in (lower << 12 | events, upper << 12 | events, gauge.mask))
    units = bytes([0, gauge.unit, 0])  # unsigned
    formula = bytes([0, gauge.step, 0, 0, 0, 0, 0])  # linear; value = step * raw, exponents of ten 0
    span = bytes([0, 0, 0, 0, 0xFF, 0])  # no nominal or normal values; highest and lowest raw byte
    limits = bytes(gauge.raw(gauge.thresholds.get(name, 0)) for name in reversed(THRESHOLDS))
    return kind + masks + units + formula + span + limits + bytes(5)


def _event_only(sensor: Sensor) -> bytes:
    """What an event-only record (43.3) has between entity and name."""
    return bytes([sensor.type, sensor.event_kind, 1, 0, 0, 0])  # it is of one sensor alone
