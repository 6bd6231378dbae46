# SPDX-License-Identifier: Apache-2.0
"""One RMCP+ session (IPMI v2.0, sections 13.15 to 13.28).

Framing and ciphers are pyghmi's. Its own session knows cipher suite 3 alone and answers no wrong
password; the choice of the suite, the refusals, copies of a request and the end of a session stand
here.
"""

from __future__ import annotations

import hmac
import os
from dataclasses import dataclass
from typing import Any

from pyghmi.ipmi.private import constants
from pyghmi.ipmi.private.serversession import ServerSession

from bmc.ipmi.settings import Command

APPLICATION = 0x06
SET_PRIVILEGE: Command = (APPLICATION, 0x3B)
CLOSE_SESSION: Command = (APPLICATION, 0x3C)

# Status codes of RMCP+ and RAKP messages (table 13-15).
_INVALID_ROLE = 0x09
_UNAUTHORIZED_NAME = 0x0D
_INVALID_INTEGRITY_CHECK = 0x0F

_REQUESTED_LEVEL_EXCEEDS_LIMIT = 0x81
_KEY_CONSTANT = 20  # bytes, whatever the hash
_SEQUENCE_WINDOW = 16  # how far a datagram may be behind the newest one

_NO_KEYS = {"confalgo": 0, "integrityalgo": 0, "sequencenumber": 0, "sessionid": 0}


@dataclass(frozen=True)
class Request:
    """One datagram's request. Its answer carries the same numbers, whatever has come meanwhile."""

    command: Command
    data: bytes
    number: int  # the requester's sequence number
    address: int  # the requester's
    lun: int



class Session(ServerSession):
    """Made by an open-session request, which the constructor answers."""

    def create_open_session_response(self, request: bytes) -> bytearray:
        wanted = tuple(request[offset] & 0x3F for offset in (12, 20, 28))
        self.suite = self.bmc.suite_for(wanted)
        self.clientsessionid = bytes(request[4:8])
        self.managedsessionid = os.urandom(4)
        self.privlevel = self.bmc.settings.privilege
        self.username = b""
        self.kuid: bytes | None = None
        self.k1 = self.sessioncontext = None  # pyghmi looks at both before they are due
        self.is_open = False
        self.rakp4: bytearray | None = None
        self.seen: set[int] = set()  # session sequence numbers within the window
        if self.suite is None:
            return bytearray([request[0], self.bmc.settings.refusal, 0, 0]) + self.clientsessionid
        self.currhashlib = self.suite.hash
        self.currhashlen = self.suite.check_length
        response = bytearray([request[0], 0, self.privlevel, 0])
        response += self.clientsessionid + self.managedsessionid
        for kind, algorithm in enumerate(self.suite.algorithms):
            response += bytearray([kind, 0, 0, 8, algorithm, 0, 0, 0])
        return response

    @property
    def who(self) -> dict[str, Any]:
        number = self.suite.number if self.suite else None
        return {"user": self.username.decode("utf-8", "replace"), "cipher_suite": number}

    # The RAKP messages. pyghmi calls these by their names.

    def _got_rakp1(self, data: bytes) -> None:
        if self.suite is None or self.is_open:
            return
        data = bytes(data)
        if self.kuid is not None and self.Rm == data[8:24]:
            self._send_rakp2(data[0])  # a copy; other random numbers would spoil the first one's
            return
        self.Rm, self.rolem = data[8:24], data[24]
        self.maxpriv = self.rolem & 0x07
        self.username = data[28:28 + data[27]]
        self.kuid = self.bmc.passwords.get(self.username)
        if self.kuid is None:
            self._refuse("rakp2", data[0], _UNAUTHORIZED_NAME, "unknown user")
        elif self.maxpriv > self.privlevel:
            self._refuse("rakp2", data[0], _INVALID_ROLE, "privilege")
        else:
            self.uuiddata = self.uuid.bytes
            self.Rc = os.urandom(16)
            self._send_rakp2(data[0])

    def _send_rakp2(self, tag: int) -> None:
        proof = self._digest(self.kuid, self.clientsessionid + self.managedsessionid + self.Rm
                             + self.Rc + self.uuiddata + self._role_and_name())
        self._send("rakp2", bytearray([tag, 0, 0, 0]) + self.clientsessionid + self.Rc
                   + self.uuiddata + proof)

    def _got_rakp3(self, data: bytes) -> None:
        if self.suite is None or self.kuid is None:
            return
        data = bytes(data)
        if self.rakp4 is not None:
            self._repeat_rakp4(data[0])
            return
        if data[1] != 0:  # it did not like our proof: its password is another one
            self.bmc.record({"event": "refused", "why": "wrong password", **self.who})
            self.bmc.forget(self)
            return
        expected = self._digest(self.kuid, self.Rc + self.clientsessionid + self._role_and_name())
        if not hmac.compare_digest(expected, data[8:]):
            self._refuse("rakp4", data[0], _INVALID_INTEGRITY_CHECK, "wrong password")
            return
        self._make_keys()
        self.is_open = True
        self.bmc.record({"event": "open", **self.who})
        self._send_rakp4(data[0], 0)

    def _make_keys(self) -> None:
        self.sik = self._digest(self.kuid, self.Rm + self.Rc + self._role_and_name())
        self.k1 = self._digest(self.sik, b"\x01" * _KEY_CONSTANT)
        self.k2 = self._digest(self.sik, b"\x02" * _KEY_CONSTANT)
        self.aeskey = self.k2[:16]
        self.localsid = int.from_bytes(self.managedsessionid, "little")
        self.ipmicallback = self.handle_client_request

    def _send_rakp4(self, tagvalue: int, statuscode: int) -> None:
        proof = self._digest(self.sik, self.Rm + self.managedsessionid + self.uuiddata)
        self.rakp4 = (bytearray([tagvalue, statuscode, 0, 0]) + self.clientsessionid
                      + proof[:self.suite.check_length])
        self._send("rakp4", self.rakp4)
        self.confalgo = "aes"  # from here on
        self.integrityalgo = self.suite.integrity
        self.sequencenumber = 1
        self.sessionid = int.from_bytes(self.clientsessionid, "little")

    def _repeat_rakp4(self, tag: int) -> None:
        """As before the session: without its keys, its numbers or its identifier."""
        kept = {name: getattr(self, name) for name in _NO_KEYS}
        vars(self).update(_NO_KEYS)
        self._send("rakp4", bytearray([tag]) + self.rakp4[1:])
        vars(self).update(kept)

    def _refuse(self, kind: str, tag: int, status: int, why: str) -> None:
        self.bmc.record({"event": "refused", "why": why, **self.who})
        self._send(kind, bytearray([tag, status, 0, 0]) + self.clientsessionid)

    def _send(self, kind: str, payload: bytearray) -> None:
        self.send_payload(payload, constants.payload_types[kind], retry=False)

    def _digest(self, key: bytes, data: bytes) -> bytes:
        return self.suite.digest(key, data)

    def _role_and_name(self) -> bytes:
        return bytes([self.rolem, len(self.username)]) + self.username

    # Requests within the session.

    def take(self, datagram: bytearray, address: Any) -> None:
        """One datagram that names this session."""
        self.remseqnumber = 0  # pyghmi takes nothing older than the newest, and the newest twice
        self._handle_ipmi_packet(datagram, sockaddr=address)

    def _is_new(self, number: int) -> bool:
        newest = max(self.seen, default=number)
        if number in self.seen or number < newest - _SEQUENCE_WINDOW:
            return False
        self.seen = {seen for seen in self.seen if seen >= newest - _SEQUENCE_WINDOW} | {number}
        return True

    def handle_client_request(self, request: dict[str, Any]) -> None:
        """Each request is executed, also one that is sent again under another number."""
        if not self._is_new(self.remseqnumber):
            return  # the same datagram again, or one that is too late
        command = (request["netfn"], request["command"])
        asked = Request(command, bytes(request["data"]), self.seqlun, self.clientaddr, self.rqlun)
        if command == SET_PRIVILEGE:
            self._set_privilege(asked)
        elif command == CLOSE_SESSION:
            self.bmc.record({"event": "close", **self.who})
            self.answer(asked, 0, b"")
            self.bmc.forget(self)
        else:
            self.bmc.handle(self, asked)

    def _set_privilege(self, asked: Request) -> None:
        level = asked.data[0] or self.maxpriv
        if level > self.maxpriv:
            self.answer(asked, _REQUESTED_LEVEL_EXCEEDS_LIMIT, b"")
        else:
            self.answer(asked, 0, bytes([level]))

    def answer(
        self, asked: Request, code: int, data: bytes, command: Command | None = None,
    ) -> None:
        """`command`: in place of the request's own."""
        self.seqlun, self.clientaddr, self.rqlun = asked.number, asked.address, asked.lun
        function, number = command or asked.command
        self._send_ipmi_net_payload(function | 1, number, data, code)
