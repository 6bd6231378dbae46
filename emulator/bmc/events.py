# SPDX-License-Identifier: Apache-2.0
"""What can happen to a server, as logs tell it, and what has happened to one."""

from __future__ import annotations

import datetime
import re
from dataclasses import dataclass
from typing import Sequence

_PLACE = re.compile("%([1-9])")


def count_of_places(text: str) -> int:
    """How many arguments a text has places for: %1, %2."""
    return max(map(int, _PLACE.findall(text)), default=0)


def filled(text: str, args: Sequence[str]) -> str:
    """The text with its arguments in their places."""
    return _PLACE.sub(lambda place: args[int(place[1]) - 1], text)


@dataclass(frozen=True)
class EventKind:
    """What can happen to a server; %1 and %2 in the text are an event's arguments."""

    name: str
    severity: str
    text: str
    resolution: str
    weight: int  # how often it happens, in comparison


EVENTS = (
    EventKind("PowerSupplyPresent", "OK", "Power supply %1 is present.", "None.", 6),
    EventKind("HostPoweredOn", "OK", "The host was powered on.", "None.", 4),
    EventKind("UserLoggedIn", "OK", "User admin logged in from 192.0.2.%1.", "None.", 9),
    EventKind("FanSpeedNormal", "OK", "Fan %1 returned to its normal speed.", "None.", 5),
    EventKind("FanSpeedLow", "Warning", "Fan %1 runs below its lower non-critical threshold.",
              "Clean the fan or replace it.", 3),
    EventKind("MemoryErrorsCorrected", "Warning", "Correctable ECC errors on DIMM %1 reached the logging limit.",
              "Replace the DIMM at the next occasion.", 3),
    EventKind("InletTemperatureHigh", "Warning", "Inlet temperature is %1 degrees above its warning limit.",
              "Check the cooling of the room.", 2),
    EventKind("PowerSupplyInputLost", "Critical", "Power supply %1 lost its input.", "Check the power cord.", 1),
    EventKind("MachineCheck", "Critical", "Machine check on processor %2, bank %1.", "Replace the processor.", 1),
    EventKind("DeviceErrorUncorrectable", "Critical", "PCIe device in slot %1 reported an uncorrectable error.",
              "Replace the device.", 1),
)


@dataclass(frozen=True)
class Event:
    """One of them, at a time."""

    number: int
    time: datetime.datetime
    kind: EventKind
    args: Sequence[str]

    @property
    def name(self) -> str:
        return self.kind.name

    @property
    def severity(self) -> str:
        return self.kind.severity

    @property
    def text(self) -> str:
        return filled(self.kind.text, self.args)
