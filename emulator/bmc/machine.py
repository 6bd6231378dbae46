# SPDX-License-Identifier: Apache-2.0
"""The server around the BMC: identity, parts, sensors, events. Drawn once, from a seed.

The Redfish service shows it and the archive contains it, so both tell the same story.
"""

from __future__ import annotations

import datetime
import functools
import random
import re
import uuid
from dataclasses import dataclass
from typing import Any, Iterable, Iterator, Sequence

from bmc.events import EVENTS, Event, count_of_places
from bmc.scenario import Checker

DRAWN = "drawn"  # serial number and UUID: from the seed
_LABEL = re.compile("[^A-Za-z0-9_-]")
_LONGEST_LABEL = 40
_KEPT_EVENTS = 40
_MEMBERS = ("serial", "uuid", "model", "firmware")
FIXED_TIME = datetime.datetime(2024, 3, 1, 12, 0, 0, tzinfo=datetime.timezone.utc)


@dataclass(frozen=True)
class Identity:
    """What the BMC tells of itself and its server; None: it does not tell."""

    serial: str | None = DRAWN
    uuid: str | None = DRAWN
    model: str | None = "TX-2200"
    firmware: str | None = "4.20.1183"


def read_identity(check: Checker, value: Any) -> Identity:
    """Reads and checks the `machine` section."""
    entry = check.mapping(value, ("machine",), _MEMBERS)
    return Identity(**{
        name: None if told is None else check.text(told, ("machine", name)) for name, told in entry.items()
    })


class Machine:
    """One server. The same seed makes the same server, to the byte and to the second."""

    def __init__(self, seed: int | None, identity: Identity = Identity()) -> None:
        self.random = random.Random(seed)
        now = datetime.datetime.now(datetime.timezone.utc).replace(microsecond=0)
        self.now = now if seed is None else FIXED_TIME
        serial = "TV" + "".join(self.random.choices("0123456789ABCDEFGHJKLMNPRSTUVWXYZ", k=8))
        self.guid = uuid.UUID(int=self.random.getrandbits(128), version=4)
        self.serial = serial if identity.serial == DRAWN else identity.serial
        self.uuid = str(self.guid) if identity.uuid == DRAWN else identity.uuid
        self.model, self.firmware = identity.model, identity.firmware
        self.mac = ":".join(["02"] + [f"{self.random.randrange(256):02x}" for _ in range(5)])
        self.processors = [self._processor(n) for n in range(2)]
        self.memory = [self._dimm(n) for n in range(1, 9)]
        places = ("Inlet", "CPU 1", "CPU 2", "DIMM 1-4", "DIMM 5-8", "Exhaust")
        self.temperatures = self._sensors(places, 24, 68)
        self.fans = self._sensors([f"Fan {n}" for n in range(1, 7)], 3200, 7400)
        self.watts = self.random.randrange(180, 420)
        self.events = self._events(240)
        self.power = "On"  # the host's

    @property
    def label(self) -> str:
        """The serial number as it may stand in names of files and hosts, whatever it is."""
        return _LABEL.sub("_", self.serial or "")[:_LONGEST_LABEL] or "unnamed"

    @property
    def recent_events(self) -> Sequence[Event]:
        """Those that the logs of the BMC still hold."""
        return self.events[-_KEPT_EVENTS:]

    @functools.cached_property
    def event_lines(self) -> Sequence[str]:
        """The events as a file of text shows them."""
        return [f"{e.number:5d}  {iso(e.time)}  {e.severity:8s}  {e.text}" for e in self.events]

    @property
    def recent_event_lines(self) -> Sequence[str]:
        return self.event_lines[-_KEPT_EVENTS:]

    def facts(self) -> dict[str, str | None]:
        return {"serial": self.serial, "uuid": self.uuid, "model": self.model, "firmware": self.firmware}

    def _processor(self, number: int) -> dict[str, Any]:
        return {
            "Id": str(number + 1),
            "Socket": f"CPU {number + 1}",
            "Cores": 16,
            "Threads": 32,
            "MaxSpeedMHz": 3600,
            "MicrocodeId": f"0x{self.random.getrandbits(28):08x}",
        }

    def _dimm(self, number: int) -> dict[str, Any]:
        return {
            "Id": str(number),
            "DeviceLocator": f"DIMM {number}",
            "CapacityMiB": 32768,
            "OperatingSpeedMhz": 4800,
            "SerialNumber": f"{self.random.getrandbits(32):08X}",
        }

    def _sensors(self, names: Iterable[str], low: int, high: int) -> list[dict[str, Any]]:
        return [{"Name": name, "Reading": self.random.randrange(low, high)} for name in names]

    def _events(self, count: int) -> list[Event]:
        time = self.now - datetime.timedelta(days=60)
        step = 60 * 86400 // (count + 1)
        events = []
        for number in range(1, count + 1):
            time += datetime.timedelta(seconds=self.random.randrange(1, step))
            kind = self.random.choices(EVENTS, weights=[kind.weight for kind in EVENTS])[0]
            drawn = str(self.random.randrange(1, 9)), str(self.random.randrange(1, 3))
            events.append(Event(number, time, kind, drawn[:count_of_places(kind.text)]))
        return events

    def console_lines(self, count: int) -> Iterator[str]:
        """The host's serial console, as the BMC kept it."""
        units = ("kernel", "systemd[1]", "mce", "edac", "nvme nvme0", "ipmi_si", "EXT4-fs (sda2)")
        seconds = 0.0
        for _ in range(count):
            seconds += self.random.random() * 7
            code = self.random.getrandbits(32)
            yield f"[{seconds:12.6f}] {self.random.choice(units)}: status {code:#010x} reported"

    def registers(self, processor: int, count: int) -> Iterator[str]:
        """A register dump of one processor."""
        yield f"processor {processor + 1}  microcode {self.processors[processor]['MicrocodeId']}"
        for number in range(count):
            value = self.random.getrandbits(64)
            yield f"msr {0x400 + number:#06x}  {value:#018x}  {value & 0xffff:016b}"


def iso(time: datetime.datetime) -> str:
    """2024-03-01T12:00:00Z, the form that Redfish wants."""
    return time.astimezone(datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ")
