# SPDX-License-Identifier: Apache-2.0
"""The system event log: what has happened to the server, as records of 16 bytes (IPMI v2.0, sections 31 and 32)."""

from __future__ import annotations

import time
from dataclasses import dataclass
from typing import Mapping, Sequence

from bmc.events import Event
from bmc.ipmi import sensors
from bmc.ipmi.requests import Handlers, Records, Reservation
from bmc.ipmi.sensors import Gauge, Sensor

_VERSION = 0x51
_SYSTEM_EVENT, _FROM_BMC, _MESSAGE_FORMAT = 0x02, b"\x20\x00", 0x04
_NEVER = b"\xff\xff\xff\xff"
_ROOM = 1024  # records
_RECORD_BYTES = 16
_RESERVE_SUPPORTED = 0x02
_GONE = 0x80  # the event is the end of a state
_NOT_SAID = 0xFF
_WITH_READING = 0x50  # reading and threshold follow


@dataclass(frozen=True)
class _Form:
    """How an event is told: by which sensor, and which of the states that its type has (tables 42-2 and 42-3)."""

    first_sensor: int  # of those that the event's `place`th argument counts from 1
    state: int
    gone: bool = False
    place: int | None = None  # of the argument with the sensor; None: there is one sensor


_FORMS: Mapping[str, _Form] = {
    "PowerSupplyPresent": _Form(sensors.POWER_SUPPLIES, 0x0, place=0),
    "PowerSupplyInputLost": _Form(sensors.POWER_SUPPLIES, 0x3, place=0),
    "HostPoweredOn": _Form(sensors.HOST_POWER, 0x0),
    "UserLoggedIn": _Form(sensors.SESSION_AUDIT, 0x0),
    "FanSpeedNormal": _Form(sensors.FANS, 0x0, gone=True, place=0),
    "FanSpeedLow": _Form(sensors.FANS, 0x0, place=0),
    "MemoryErrorsCorrected": _Form(sensors.DIMMS, 0x5, place=0),
    "InletTemperatureHigh": _Form(sensors.INLET, 0x7),
    "MachineCheck": _Form(sensors.PROCESSORS, 0xB, place=1),
    "DeviceErrorUncorrectable": _Form(sensors.SLOTS, 0x8, place=0),
}


class EventLog:
    """The events, oldest first."""

    def __init__(self, events: Sequence[Event], known: Sequence[Sensor]) -> None:
        by_number = {sensor.number: sensor for sensor in known}
        records = {number: _record(number, event, by_number) for number, event in enumerate(events, 1)}
        self._count = len(records)
        self._newest = _seconds(events[-1]) if events else _NEVER
        self._reservation = Reservation()
        self._records = Records(records, self._reservation)

    def handlers(self) -> Handlers:
        return {
            (0x0A, 0x40): (0, self._info),
            (0x0A, 0x42): (0, self._reservation.reserve),
            (0x0A, 0x43): (6, self._records.read),
            (0x0A, 0x48): (0, self._time),
        }

    def _info(self, _: bytes) -> bytes:
        """Get SEL Info (31.2); it has never been cleared."""
        free = (_ROOM - self._count) * _RECORD_BYTES
        sizes = self._count.to_bytes(2, "little") + free.to_bytes(2, "little")
        return bytes([_VERSION]) + sizes + self._newest + _NEVER + bytes([_RESERVE_SUPPORTED])

    @staticmethod
    def _time(_: bytes) -> bytes:
        """Get SEL Time (31.10)."""
        return int(time.time()).to_bytes(4, "little")


def _record(number: int, event: Event, known: Mapping[int, Sensor]) -> bytes:
    """A system event record (32.1)."""
    form = _FORMS[event.name]
    place = 0 if form.place is None else int(event.args[form.place]) - 1
    sensor = known[form.first_sensor + place]
    head = number.to_bytes(2, "little") + bytes([_SYSTEM_EVENT]) + _seconds(event) + _FROM_BMC
    kind = bytes([_MESSAGE_FORMAT, sensor.type, sensor.number, sensor.event_kind | (_GONE if form.gone else 0)])
    return head + kind + _data(event, form, sensor)


def _data(event: Event, form: _Form, sensor: Sensor) -> bytes:
    """The three bytes that say more (29.7)."""
    if not isinstance(sensor, Gauge):
        return bytes([form.state, _NOT_SAID, _NOT_SAID])
    if sensor.type == sensors.TEMPERATURE:
        limit = sensor.thresholds["unc"]
        reading = limit + int(event.args[0])
    else:
        limit = sensor.thresholds["lnc"]
        reading = limit + sensor.step * (8 if form.gone else -3)
    return bytes([_WITH_READING | form.state, sensor.raw(reading), sensor.raw(limit)])


def _seconds(event: Event) -> bytes:
    return int(event.time.timestamp()).to_bytes(4, "little")
