# SPDX-License-Identifier: Apache-2.0
"""The UDP port: finds the session of a datagram, answers what needs none."""

from __future__ import annotations

import asyncio
import struct
import uuid
from typing import Any, Callable

from pyghmi.ipmi.private import constants
from pyghmi.ipmi.private.serversession import IpmiServer
from pyghmi.ipmi.private.session import Session as PyghmiSession
from pyghmi.ipmi.private.session import _checksum

from bmc.ipmi.commands import Commands, entry
from bmc.ipmi.network import Network
from bmc.ipmi.session import APPLICATION, Request, Session
from bmc.ipmi.settings import IpmiAnswer, IpmiSettings
from bmc.ipmi.suites import SUITES, CipherSuite
from bmc.record import RequestRecord

_RMCP = b"\x06\x00\xff\x07"
_PRESENCE_PING = bytes.fromhex("0600ff06 000011be 80")
_PONG = bytes.fromhex("0600ff06 000011be 40 00 00 10 000011be 00000000 81 00 000000000000")
_OPEN_SESSION = constants.payload_types["rmcpplusopenreq"]
_SETTING_UP = (constants.payload_types["rakp1"], constants.payload_types["rakp3"])
_MOST_SESSIONS = 64  # the oldest makes room
_GET_CIPHER_SUITES = 0x54
_SUITE_BYTES = 16  # of the list, per answer
_LAN_CHANNEL = 1
_IPMI_2_ONLY = bytes([0, _LAN_CHANNEL, 0x80, 0x04, 0x02, 0, 0, 0, 0])  # with named users


class _Socket:
    """What pyghmi asks of a socket, over a transport of asyncio."""

    def __init__(self, transport: asyncio.DatagramTransport, network: Network) -> None:
        self._transport = transport
        self._network = network

    def setblocking(self, _blocking: bool) -> None:
        pass

    def sendto(self, packet: bytes, address: Any) -> None:
        copy = bytes(packet)
        self._network.carry(lambda: self._transport.sendto(copy, address))


class IpmiService(IpmiServer, asyncio.DatagramProtocol):
    """The IPMI service of one BMC, on the event loop: without pyghmi's own sockets and thread."""

    def __init__(
        self, settings: IpmiSettings, commands: Commands, account: tuple[str, str],
        record: RequestRecord,
    ) -> None:
        # Deliberate: IpmiServer's constructor would open a socket and start a thread.
        self.settings = settings
        self.passwords = {user.encode(): password.encode()
                          for user, password in {**settings.users, account[0]: account[1]}.items()}
        self.uuid = uuid.UUID(bytes=commands.guid)  # pyghmi sends its bytes as they stand
        self.authcap = _IPMI_2_ONLY
        self.port = 0
        self._commands = commands
        self._record = record
        self._sessions: dict[bytes, Session] = {}  # by the BMC's identifier
        self._network = Network(settings.network)
        self._busy_until = 0.0  # in the event loop's time

    def connection_made(self, transport: Any) -> None:
        self.serversocket = _Socket(transport, self._network)
        self.port = transport.get_extra_info("sockname")[1]

    def datagram_received(self, data: bytes, addr: Any) -> None:
        datagram = bytearray(data)
        if data[:9] == _PRESENCE_PING and len(data) >= 12:
            self._network.carry(lambda: self._await_turn(lambda: self._pong(data[9], addr)))
            return
        if len(datagram) < len(_RMCP) or datagram[:1] + datagram[2:4] != _RMCP[:1] + _RMCP[2:]:
            return
        self._network.carry(lambda: self._await_turn(lambda: self._take(bytearray(data), addr)))

    def _pong(self, tag: int, addr: Any) -> None:
        """Here is somebody who speaks IPMI (section 13.2.4)."""
        if not self._commands.silent:
            self.serversocket.sendto(_PONG[:9] + bytes([tag]) + _PONG[10:], addr)

    def _await_turn(self, action: Callable[[], None]) -> None:
        if not self.settings.answer_time:
            action()
            return
        loop = asyncio.get_running_loop()
        begin = loop.time()
        if self.settings.one_at_a_time:
            begin = max(begin, self._busy_until)
        self._busy_until = begin + self.settings.answer_time
        loop.call_at(self._busy_until, action)

    def _take(self, datagram: bytearray, addr: Any) -> None:
        if self._commands.silent:
            self.record({"event": "ignored", "bytes": len(datagram)})
            return
        try:
            self._dispatch(datagram, addr)
        except Exception as error:  # pyghmi trusts its input; asyncio would close the port
            self.record({"event": "malformed", "why": repr(error)})

    def _dispatch(self, datagram: bytearray, addr: Any) -> None:
        is_rmcp_plus = datagram[4] == 6
        kind = datagram[5] & 0x3F
        if is_rmcp_plus and datagram[5] == _OPEN_SESSION:
            self._open(bytes(datagram[16:]), addr)
        elif is_rmcp_plus and (datagram[5] != 0 or any(datagram[6:10])):
            identifier = bytes(datagram[20:24] if kind in _SETTING_UP else datagram[6:10])
            if identifier in self._sessions:
                self._sessions[identifier].take(datagram, addr)
        else:
            self.sessionless_data(datagram, addr)

    def _open(self, request: bytes, addr: Any) -> None:
        session = Session(None, None, addr, self.serversocket, request, self.uuid, bmc=self)
        PyghmiSession.bmc_handlers.pop(addr, None)  # its table is process-wide; ours is not
        if session.suite is None:
            self.record({"event": "refused", "why": "cipher suite", **session.who})
            return
        if len(self._sessions) >= _MOST_SESSIONS:
            del self._sessions[next(iter(self._sessions))]
        self._sessions[session.managedsessionid] = session

    def send_cipher_suites(
        self, myaddr: int, mylun: int, clientaddr: int, clientlun: int,
        clientseq: int, data: bytes, sockaddr: Any,
    ) -> None:
        records = b"".join(SUITES[number].record() for number in self.settings.cipher_suites)
        index = data[22] & 0x3F  # after channel and payload type
        part = records[_SUITE_BYTES * index:_SUITE_BYTES * (index + 1)]
        head = bytes([clientaddr, (APPLICATION + 1) << 2 | clientlun])
        body = bytes([myaddr, clientseq << 2 | mylun, _GET_CIPHER_SUITES, 0, _LAN_CHANNEL]) + part
        message = head + bytes([_checksum(*head)]) + body + bytes([_checksum(*body)])
        no_session = b"\x06\x00" + bytes(8)
        self.serversocket.sendto(
            _RMCP + no_session + struct.pack("<H", len(message)) + message, sockaddr)

    # For the sessions.

    def record(self, line: dict[str, Any]) -> None:
        self._record.add("ipmi", {"interface": "lan", **line})

    def suite_for(self, algorithms: tuple[int, ...]) -> CipherSuite | None:
        offered = (SUITES[number] for number in self.settings.cipher_suites)
        return next((suite for suite in offered if suite.algorithms == algorithms), None)

    def forget(self, session: Session) -> None:
        self._sessions.pop(session.managedsessionid, None)

    def handle(self, session: Session, asked: Request) -> None:
        answer = self._commands.answer(asked.command, asked.data)
        self.record(entry(asked.command, asked.data, answer, **session.who))
        if answer.hang or answer.gone:
            return
        if answer.delay:
            asyncio.get_running_loop().call_later(
                answer.delay, self._answer, session, asked, answer)
        else:
            self._answer(session, asked, answer)

    def _answer(self, session: Session, asked: Request, answer: IpmiAnswer) -> None:
        if not self._commands.silent:
            session.answer(asked, answer.code, answer.data, answer.answers_as)


async def serve(
    address: str, port: int, settings: IpmiSettings, commands: Commands,
    account: tuple[str, str], record: RequestRecord,
) -> IpmiService:
    """Serves on `address` and `port` (0: a free one, then in `.port`)."""
    _, service = await asyncio.get_running_loop().create_datagram_endpoint(
        lambda: IpmiService(settings, commands, account, record), local_addr=(address, port))
    return service
