# SPDX-License-Identifier: Apache-2.0
"""The standard's commands beyond the BMC's identity: chassis, channels, inventory, event log, sensors.

Loaded when the first of them is asked for: the clients of the collection ask for none.
"""

from __future__ import annotations

from bmc.ipmi.event_log import EventLog
from bmc.ipmi.inventory import Inventory
from bmc.ipmi.requests import INVALID_COMMAND, INVALID_FIELD, REQUEST_TOO_SHORT, Handlers, Refused
from bmc.ipmi.sensor_records import SensorRecords
from bmc.ipmi.sensors import SensorDevice, sensors_of
from bmc.ipmi.settings import Command
from bmc.machine import Machine

_ALWAYS_ON = 0x40  # what happens when power comes back
_LAN_CHANNEL, _SYSTEM_INTERFACE, _THIS_CHANNEL = 0x1, 0xF, 0xE
# Medium, protocol and kind of sessions: 802.3 with IPMB messages and many of them, KCS without (tables 6-2 and 6-3).
_CHANNELS = {_LAN_CHANNEL: (0x04, 0x01, 0x80), _SYSTEM_INTERFACE: (0x0C, 0x05, 0x00)}
_DEFINED_BY_IPMI = (7154).to_bytes(3, "little")


class StandardCommands:
    """Answers them; anything else is an invalid command."""

    def __init__(self, machine: Machine) -> None:
        self._machine = machine
        sensors = sensors_of(machine)
        parts = (
            Inventory(machine), EventLog(machine.recent_events, sensors), SensorDevice(sensors),
            SensorRecords(sensors, int(machine.now.timestamp())),
        )
        self._handlers: Handlers = {
            (0x00, 0x01): (0, self._chassis_status),
            (0x06, 0x42): (1, _channel_info),
            **{command: handler for part in parts for command, handler in part.handlers().items()},
        }

    def answer(self, command: Command, request: bytes) -> tuple[int, bytes]:
        """Completion code and data."""
        if command not in self._handlers:
            return INVALID_COMMAND, b""
        shortest, handler = self._handlers[command]
        if len(request) < shortest:
            return REQUEST_TOO_SHORT, b""
        try:
            return 0, handler(request)
        except Refused as refused:
            return refused.code, b""

    def _chassis_status(self, _: bytes) -> bytes:
        """Get Chassis Status (28.2)."""
        return bytes([_ALWAYS_ON | (self._machine.power == "On"), 0, 0])


def _channel_info(request: bytes) -> bytes:
    """Get Channel Info (22.24)."""
    asked = request[0] & 0x0F
    number = _LAN_CHANNEL if asked == _THIS_CHANNEL else asked
    if number not in _CHANNELS:
        raise Refused(INVALID_FIELD)
    return bytes([number, *_CHANNELS[number]]) + _DEFINED_BY_IPMI + bytes(2)
