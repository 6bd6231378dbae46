# SPDX-License-Identifier: Apache-2.0
"""What the BMC answers to commands, whichever way they come in."""

from __future__ import annotations

from dataclasses import replace
from functools import cached_property
from typing import Any

from bmc.answer_lists import next_of
from bmc.ipmi.identity import GET_DEVICE_GUID, GET_DEVICE_ID, GET_SYSTEM_GUID, device_id, system_guid
from bmc.ipmi.settings import COLLECT, CREDENTIAL, OWN, POLL, Command, IpmiAnswer, IpmiSettings
from bmc.machine import Machine


class Commands:
    """The state of the collection and the scripted answers that are left, for all interfaces."""

    def __init__(self, settings: IpmiSettings, account: tuple[str, str], machine: Machine) -> None:
        self.guid = system_guid(machine)
        self._device_id = device_id(machine)
        self._machine = machine
        self._polls = settings.polls
        self._account = settings.credential or account
        self._scripted = {command: list(answers) for command, answers in settings.answers.items()}
        self._polled = 0
        self.silent = settings.silent

    def answer(self, command: Command, request: bytes) -> IpmiAnswer:
        """The answer to a request, complete: with code and data, or with hang or gone."""
        scripted = self._next(command)
        self.silent = self.silent or scripted.gone
        if scripted.hang or scripted.gone:
            return scripted
        code, data = scripted.code, scripted.data
        if scripted.is_own:
            code, data = self._own(command, request)
        return replace(scripted, code=code or 0, data=data or b"")

    def _next(self, command: Command) -> IpmiAnswer:
        answers = self._scripted.get(command)
        return next_of(answers) if answers else OWN

    def _own(self, command: Command, request: bytes) -> tuple[int, bytes]:
        if command == COLLECT:
            self._polled = 0
            return 0, b""
        if command == POLL:
            self._polled += 1
            return 0, bytes([0 <= self._polls < self._polled])
        if command == CREDENTIAL:
            return 0, b"".join(_length_and_text(text) for text in self._account)
        if command == GET_DEVICE_ID:
            return 0, self._device_id
        if command in (GET_DEVICE_GUID, GET_SYSTEM_GUID):
            return 0, self.guid
        return self._standard.answer(command, request)

    @cached_property
    def _standard(self) -> Any:
        from bmc.ipmi.standard import StandardCommands

        return StandardCommands(self._machine)


def _length_and_text(text: str) -> bytes:
    encoded = text.encode()
    return bytes([len(encoded)]) + encoded


def entry(command: Command, data: bytes, answer: IpmiAnswer, **who: Any) -> dict[str, Any]:
    """The line of the record for a request and what becomes of it."""
    outcome = None if answer.hang or answer.gone else answer.code
    return {
        "netfn": command[0], "command": command[1], "data": data.hex(), **who,
        "completion_code": outcome,
    }
