# SPDX-License-Identifier: Apache-2.0
"""The way in from the host itself: what a KCS interface is to the kernel, as a local socket.

A frame is two bytes of length, high byte first, and so many bytes. A request is network function,
command and data, its answer completion code and data. One request at a time; no login.
"""

from __future__ import annotations

import asyncio
import secrets

from bmc.ipmi.commands import Commands, entry
from bmc.record import RequestRecord


class KcsInterface:
    """Answers one client after the other, or several, as the kernel would let them in."""

    def __init__(self, commands: Commands, record: RequestRecord) -> None:
        self._commands = commands
        self._record = record
        # Linux's abstract names need no folder, have no length to care for, and go by themselves.
        self.name = f"emulated-bmc-kcs-{secrets.token_hex(8)}"

    async def start(self) -> None:
        await asyncio.start_unix_server(self._serve, path="\0" + self.name)

    async def _serve(self, reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> None:
        try:
            while True:
                length = int.from_bytes(await reader.readexactly(2), "big")
                await self._answer(await reader.readexactly(length), writer)
        except (asyncio.IncompleteReadError, ConnectionError):
            pass  # closed
        finally:
            writer.close()

    async def _answer(self, request: bytes, writer: asyncio.StreamWriter) -> None:
        if self._commands.silent or len(request) < 2:
            self._record.add("ipmi", {"interface": "kcs", "event": "ignored", "bytes": len(request)})
            return
        command, data = (request[0], request[1]), request[2:]
        answer = self._commands.answer(command, data)
        self._record.add("ipmi", {"interface": "kcs", **entry(command, data, answer)})
        if answer.hang or answer.gone:
            return
        await asyncio.sleep(answer.delay)
        frame = bytes([answer.code]) + answer.data
        writer.write(len(frame).to_bytes(2, "big") + frame)
        await writer.drain()
