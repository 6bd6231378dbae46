# SPDX-License-Identifier: Apache-2.0
"""The ports of the CIM server: connections, one request after another on each."""

from __future__ import annotations

import asyncio
import logging
import socket
import ssl
from email.utils import formatdate

from bmc.cim import access, replies
from bmc.cim.answers import OWN, CimAnswer, CimScript
from bmc.cim.errors import FAILED, CimError, Refusal
from bmc.cim.messages import Call, read_call, return_value
from bmc.cim.operations import Operations
from bmc.cim.settings import CimSettings
from bmc.cim.wire import HttpReply, HttpRequest, read_request
from bmc.http.head import LONGEST_HEAD, NotHttp
from bmc.http.pacing import FLUSH_SECONDS, flush, paced
from bmc.record import RequestRecord

_LOG = logging.getLogger("emulated-bmc")
# Deliberate: one header runs into the next, as it does on the real server.
_NOT_FOUND = (
    "HTTP/1.1 404 Not Found\r\nDate: {date}Content-Type: text/html;charset=UTF-8\r\n\r\n\r\n"
    "<html><head><title>Error</title></head><body><br/><h1>Not Found</h1></body></html>\r\n"
)
_NOT_IMPLEMENTED = b"HTTP/1.1 501 Not Implemented\r\n\r\n"


class CimServer:
    """Answers on any number of listening sockets."""

    def __init__(
        self, settings: CimSettings, account: access.Account, operations: Operations,
        record: RequestRecord, host: str,
    ) -> None:
        self._settings = settings
        self._account = account
        self._operations = operations
        self._record = record
        self._script = CimScript(settings.answers)
        challenge = settings.challenge
        self._challenge = None if challenge is None else challenge.replace("{host}", host)
        self._connections = 0

    async def start(self, listener: socket.socket, context: ssl.SSLContext | None) -> None:
        """Serves until the process ends."""
        await asyncio.start_server(
            self._connection, sock=listener, ssl=context, limit=LONGEST_HEAD, backlog=128
        )

    async def _connection(self, reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> None:
        self._connections += 1
        number = self._connections
        try:
            while request := await read_request(reader, writer):
                if not await self._request(request, number, reader, writer):
                    break
        except NotHttp:
            writer.write(_NOT_IMPLEMENTED)
        except (ConnectionError, ssl.SSLError):
            pass
        except Exception:  # a defect of the emulator: say so here and keep the BMC alive
            _LOG.exception("a request to the CIM server was not answered")
        await _close(writer)

    async def _request(
        self, request: HttpRequest, number: int,
        reader: asyncio.StreamReader, writer: asyncio.StreamWriter,
    ) -> bool:
        """Answers one; whether the connection goes on."""
        self._note(request, number, writer)
        if request.method not in ("POST", "M-POST"):
            writer.write(_page() if request.method in ("GET", "HEAD") else _NOT_IMPLEMENTED)
            return False
        if not self._admits(request):
            first = request.header("Authorization") is None
            reply = replies.unauthorized(self._challenge, first)
            return await _send(writer, reply, OWN) and not request.wants_close
        try:
            answer, call = self._script_for(request)
        except Refusal as refusal:
            return await _send(writer, replies.refused(refusal), OWN) and not request.wants_close
        return await self._answer(request, call, answer, reader, writer)

    async def _answer(
        self, request: HttpRequest, call: Call, answer: CimAnswer,
        reader: asyncio.StreamReader, writer: asyncio.StreamWriter,
    ) -> bool:
        """Carries out what is asked, in the manner of the scenario."""
        if answer.delay:
            await asyncio.sleep(answer.delay)
        if answer.hang:
            await _wait_for_end(reader)
        if answer.hang or answer.close == "before":
            return False
        reply = await self._reply(request, call, answer)
        _apply(reply, answer)
        goes_on = await _send(writer, reply, answer)
        if answer.hang_after is not None:
            await _wait_for_end(reader)
        return goes_on and answer.close is None and not request.wants_close

    def _note(self, request: HttpRequest, number: int, writer: asyncio.StreamWriter) -> None:
        self._record.add("cim", {
            **request.entry(),
            "version": request.version,
            "tls": writer.get_extra_info("ssl_object") is not None,
            "connection": number,
        })

    def _admits(self, request: HttpRequest) -> bool:
        return not self._settings.authentication or self._account.admits(request.header("Authorization"))

    def _script_for(self, request: HttpRequest) -> tuple[CimAnswer, Call]:
        """What is asked, and the scenario's answer to it. Refused requests use none up."""
        access.check_head(request)
        call = read_call(request.body)
        access.check_match(request, call)
        return self._script.next(call.method, call.class_name), call

    async def _reply(self, request: HttpRequest, call: Call, answer: CimAnswer) -> HttpReply:
        if not answer.is_own:
            return replies.scripted(answer)
        try:
            content, error = await self._content(call, answer), None
        except CimError as problem:
            content, error = "", problem
        return replies.answered(request, call, content, error, answer)

    async def _content(self, call: Call, answer: CimAnswer) -> str:
        if answer.error is not None:
            error = CimError(answer.error.code, answer.error.text or "")
            if answer.error.raw:
                error.description = answer.error.text
            raise error
        if answer.returned is not None:
            given = answer.returned
            return "" if given.absent else return_value(given.type, given.value)
        try:
            return await self._operations.perform(call, answer.instances or 0, answer.properties or 0)
        except OSError as error:  # no curl, no disk: the BMC lives on and says so
            raise CimError(FAILED, str(error)) from error


def _page() -> bytes:
    return _NOT_FOUND.format(date=formatdate(usegmt=True)).encode()


def _apply(reply: HttpReply, answer: CimAnswer) -> None:
    """The scenario's changes to lines around the body."""
    if answer.content_length is not None:
        reply.chunk_size = None
        reply.set({"transfer-encoding": None, "Trailer": None, "content-length": None})
        reply.headers.insert(1, ("content-length", str(answer.content_length)))
    if answer.trailer:
        reply.trailer = _changed_trailer(reply, answer)
    reply.set(answer.headers)


def _changed_trailer(reply: HttpReply, answer: CimAnswer) -> list[tuple[str, str]]:
    changed = HttpReply(200, reply.trailer)
    changed.set(answer.trailer)
    return changed.headers


async def _send(writer: asyncio.StreamWriter, reply: HttpReply, answer: CimAnswer) -> bool:
    """Sends; whether the connection can go on. A cut counts the bytes after the head."""
    stops = [n for n in (answer.cut_after, answer.hang_after) if n is not None]
    writer.write(reply.head())
    for chunk in paced(reply.pieces(), stops[0] if stops else None, answer.rate):
        if isinstance(chunk, float):
            await asyncio.sleep(chunk)
            continue
        writer.write(chunk)
        await writer.drain()
    if answer.cut_after is not None:
        await _cut(writer)
    return not stops


async def _cut(writer: asyncio.StreamWriter) -> None:
    """Ends the connection without a goodbye of TLS, once the bytes so far are with the kernel."""
    await flush(writer.transport)
    writer.transport.abort()


async def _wait_for_end(reader: asyncio.StreamReader) -> None:
    """Stays silent until the client has had enough."""
    while await reader.read(4096):
        pass


async def _close(writer: asyncio.StreamWriter) -> None:
    writer.close()
    try:
        await asyncio.wait_for(writer.wait_closed(), FLUSH_SECONDS)
    except (ConnectionError, ssl.SSLError, asyncio.TimeoutError):
        pass
