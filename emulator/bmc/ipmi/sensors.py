# SPDX-License-Identifier: Apache-2.0
"""The sensors of the server as IPMI numbers and measures them (IPMI v2.0, sections 35, 42 and 43)."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Iterator, Mapping, Sequence

from bmc.ipmi.requests import NOT_PRESENT, Handlers, Refused
from bmc.machine import Machine

# Types of sensors (table 42-3).
TEMPERATURE, FAN, PROCESSOR, POWER_SUPPLY, OTHER_UNITS, MEMORY = 0x01, 0x04, 0x07, 0x08, 0x0B, 0x0C
CRITICAL_INTERRUPT, POWER_STATE, SESSIONS = 0x13, 0x22, 0x2A
# Units (table 43-15) and entities (table 43-13).
DEGREES, RPM, WATTS = 1, 18, 6
_AIR_INLET, _BOARD, _CPU, _MEMORY, _FAN, _POWER_SUPPLY, _CARD, _CONTROLLER = 0x40, 7, 3, 32, 29, 10, 11, 6

# Lowest numbers of the sensors that events tell of by their place.
INLET, FANS, POWER_SUPPLIES, DIMMS, PROCESSORS, SLOTS = 0x01, 0x11, 0x31, 0x41, 0x51, 0x61
HOST_POWER, SESSION_AUDIT, _POWER = 0x70, 0x71, 0x20
_BAYS = 8  # of fans, power supplies, memory and cards; not all of those for fans are in use

# Thresholds in the order of Get Sensor Thresholds, which is that of the bits that stand for them.
THRESHOLDS = ("lnc", "lc", "lnr", "unc", "uc", "unr")
_WORKS, _NO_READING = 0xC0, 0xE0  # scanned and reporting events; without a reading
_DISCRETE, _THRESHOLD = 0x6F, 0x01


@dataclass(frozen=True)
class Sensor:
    """One that only reports events, of the kinds that its type has."""

    number: int
    name: str
    type: int
    entity: tuple[int, int]  # what is watched, and which of those

    event_kind = _DISCRETE


@dataclass(frozen=True)
class Gauge(Sensor):
    """One that measures. A raw byte is worth `step` units."""

    unit: int
    step: int
    value: int | None  # in units; None: there is nothing to measure
    thresholds: Mapping[str, int]  # in units, by their names

    event_kind = _THRESHOLD

    def raw(self, value: int) -> int:
        return max(0, min(0xFF, round(value / self.step)))

    @property
    def mask(self) -> int:
        """The thresholds that there are, as bits."""
        return sum(1 << bit for bit, name in enumerate(THRESHOLDS) if name in self.thresholds)

    def crossed(self, value: int) -> int:
        """The thresholds that a value is at or beyond, as bits."""
        return sum(1 << bit for bit, name in enumerate(THRESHOLDS) if self._is_beyond(name, value))

    def _is_beyond(self, name: str, value: int) -> bool:
        if name not in self.thresholds:
            return False
        reading, limit = self.raw(value), self.raw(self.thresholds[name])
        return reading <= limit if name.startswith("l") else reading >= limit


def sensors_of(machine: Machine) -> Sequence[Sensor]:
    """All of them, by number."""
    return sorted((*_gauges(machine), *_reporters()), key=lambda sensor: sensor.number)


def _gauges(machine: Machine) -> Iterator[Gauge]:
    hot = {"unc": 75, "uc": 85, "unr": 95}
    entities = {"Inlet": (_AIR_INLET, 1), "Exhaust": (_BOARD, 1)}
    for place, found in enumerate(machine.temperatures):
        kind, _, which = found["Name"].partition(" ")
        entity = entities.get(found["Name"], (_CPU if kind == "CPU" else _MEMORY, int(which[:1] or 0)))
        yield Gauge(INLET + place, found["Name"] + " Temp", TEMPERATURE, entity, DEGREES, 1, found["Reading"], hot)
    for place in range(_BAYS):
        speed = machine.fans[place]["Reading"] if place < len(machine.fans) else None
        yield Gauge(FANS + place, f"Fan {place + 1}", FAN, (_FAN, place + 1), RPM, 30, speed, {"lnc": 2400, "lc": 1800})
    yield Gauge(_POWER, "Power", OTHER_UNITS, (_BOARD, 1), WATTS, 5, machine.watts, {"unc": 950, "uc": 1100})


def _reporters() -> Iterator[Sensor]:
    for place in range(_BAYS):
        yield Sensor(POWER_SUPPLIES + place, f"PSU {place + 1}", POWER_SUPPLY, (_POWER_SUPPLY, place + 1))
        yield Sensor(DIMMS + place, f"DIMM {place + 1}", MEMORY, (_MEMORY, place + 1))
        yield Sensor(SLOTS + place, f"Slot {place + 1}", CRITICAL_INTERRUPT, (_CARD, place + 1))
    for place in range(2):
        yield Sensor(PROCESSORS + place, f"CPU {place + 1}", PROCESSOR, (_CPU, place + 1))
    yield Sensor(HOST_POWER, "Host power", POWER_STATE, (_BOARD, 1))
    yield Sensor(SESSION_AUDIT, "Sessions", SESSIONS, (_CONTROLLER, 1))


class SensorDevice:
    """Tells readings and thresholds."""

    def __init__(self, sensors: Sequence[Sensor]) -> None:
        self._gauges = {sensor.number: sensor for sensor in sensors if isinstance(sensor, Gauge)}

    def handlers(self) -> Handlers:
        return {(0x04, 0x2D): (1, self._reading), (0x04, 0x27): (1, self._thresholds)}

    def _reading(self, request: bytes) -> bytes:
        """Get Sensor Reading (35.14)."""
        gauge = self._find(request)
        if gauge.value is None:
            return bytes([0, _NO_READING, 0xC0])
        return bytes([gauge.raw(gauge.value), _WORKS, 0xC0 | gauge.crossed(gauge.value)])

    def _thresholds(self, request: bytes) -> bytes:
        """Get Sensor Thresholds (35.9)."""
        gauge = self._find(request)
        return bytes([gauge.mask, *(gauge.raw(gauge.thresholds.get(name, 0)) for name in THRESHOLDS)])

    def _find(self, request: bytes) -> Gauge:
        if request[0] not in self._gauges:
            raise Refused(NOT_PRESENT)
        return self._gauges[request[0]]
