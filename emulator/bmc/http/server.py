# SPDX-License-Identifier: Apache-2.0
"""Serves one web service: records each request, asks the script, then the service, and sends."""

from __future__ import annotations

import asyncio
import logging
import socket
import ssl
from typing import Any, Mapping

from aiohttp import web
from aiohttp.web_protocol import RequestHandler

from bmc.http.bodies import BytesBody
from bmc.http.connection import Connection
from bmc.http.head import LONGEST_HEAD, Head
from bmc.http.messages import LARGEST_REQUEST, Reply, Request, WebService, changed
from bmc.http.pacing import flush, paced
from bmc.http.script import Answer, Script
from bmc.record import RequestRecord, header_map

_LOG = logging.getLogger("emulated-bmc")


class WebServer:
    """One listening port in front of one service."""

    def __init__(self, service: WebService, script: Script, record: RequestRecord) -> None:
        self._service = service
        self._script = script
        self._record = record

    async def start(self, listener: socket.socket, context: ssl.SSLContext | None) -> None:
        """Serves on `listener` until the process ends."""
        loop = asyncio.get_running_loop()
        server = web.Server(self._serve)
        options = {
            "loop": loop, "access_log": None, "max_line_size": LONGEST_HEAD, "max_field_size": LONGEST_HEAD,
            "max_headers": LONGEST_HEAD,
        }
        await loop.create_server(
            lambda: Connection(server, self._serve_strange, **options), sock=listener, ssl=context, backlog=128)

    async def _serve(self, raw: web.BaseRequest) -> web.StreamResponse:
        return await self._answer(raw, await _received(raw))

    async def _serve_strange(self, raw: web.BaseRequest, head: Head) -> web.StreamResponse:
        return await self._answer(raw, Request(head.method, head.path, head.query, head.headers, b""))

    async def _answer(self, raw: web.BaseRequest, request: Request) -> web.StreamResponse:
        self._record.add(self._service.name, request.entry())
        answer = self._script.next(request.method, request.path)
        if answer.delay:
            await asyncio.sleep(answer.delay)
        if answer.hang:
            return await _hang(raw)
        reply = await self._reply(request, answer)
        reply.headers = dict(changed(reply.headers.items(), answer.headers))
        try:
            return await _send(raw, reply, answer)
        except ConnectionError:
            return _abandoned(raw)

    async def _reply(self, request: Request, answer: Answer) -> Reply:
        if answer.is_own:
            return await self._own_reply(request, answer.wishes)
        if answer.body is None:
            return self._service.empty_answer(request, answer.status or 200)
        return Reply(answer.status or 200, {"Content-Type": answer.content_type}, answer.body)

    async def _own_reply(self, request: Request, wishes: Mapping[str, Any]) -> Reply:
        if len(request.body) > LARGEST_REQUEST:
            return self._service.empty_answer(request, 413)
        try:
            return await self._service.answer(request, wishes)
        except Exception:  # a defect of the emulator: say so here and keep the BMC alive
            _LOG.exception("no answer to %s %s", request.method, request.path)
            return self._service.empty_answer(request, 500)


async def _received(raw: web.BaseRequest) -> Request:
    """The whole request; of a too large body a little more than what is refused is kept."""
    if (raw.headers.get("Expect") or "").lower() == "100-continue":
        await raw.writer.write(b"HTTP/1.1 100 Continue\r\n\r\n")
    body = bytearray()
    async for data in raw.content.iter_any():
        if len(body) <= LARGEST_REQUEST:
            body += data
    path, _, query = raw.raw_path.partition("?")
    return Request(raw.method, path, query, header_map(raw.raw_headers), bytes(body))


class _Response(web.StreamResponse):
    """A response without the headers that a scenario removed, also those the framework adds."""

    def __init__(self, reply: Reply, removed: list[str]) -> None:
        super().__init__(status=reply.status, headers=reply.headers)
        self._removed = removed

    async def _prepare_headers(self) -> None:
        await super()._prepare_headers()
        for name in self._removed:
            self.headers.pop(name, None)


async def _send(raw: web.BaseRequest, reply: Reply, answer: Answer) -> web.StreamResponse:
    removed = [name.lower() for name, value in answer.headers.items() if value is None]
    response = _Response(reply, [name for name in removed if name != "content-length"])
    own_length = response.headers.get("Content-Length")
    if own_length is None and "content-length" not in removed:
        response.headers["Content-Length"] = str(reply.body.size)
    response.headers.setdefault("Server", "Tavrin-BMC")
    if own_length is not None and own_length != str(reply.body.size):
        response.force_close()  # a length that lies: the end of the connection is the end
    await response.prepare(raw)
    if raw.method == "HEAD" or reply.status in (204, 304):
        reply.body = BytesBody()
    await _send_body(raw, response, reply, answer)
    return response


async def _send_body(
    raw: web.BaseRequest, response: web.StreamResponse, reply: Reply, answer: Answer
) -> None:
    stops = [n for n in (answer.cut_after, answer.hang_after) if n is not None]
    for chunk in paced(reply.body.chunks(), stops[0] if stops else None, answer.rate):
        if isinstance(chunk, float):
            await asyncio.sleep(chunk)
        else:
            await response.write(chunk)
    if answer.hang_after is not None:
        await flush(raw.transport)
        await _hang(raw)
    if answer.cut_after is not None:
        await flush(raw.transport)
        _cut(raw)
    else:
        await response.write_eof()


async def _hang(raw: web.BaseRequest) -> web.StreamResponse:
    """Stays silent until the client has had enough."""
    while raw.transport is not None and not raw.transport.is_closing():
        await asyncio.sleep(0.05)
    return _abandoned(raw)


def _abandoned(raw: web.BaseRequest) -> web.StreamResponse:
    """What the framework wants back although nobody is left to read it."""
    _cut(raw)
    return web.Response()


def _cut(raw: web.BaseRequest) -> None:
    """Ends the connection at once: no TLS goodbye, as when a cable is pulled."""
    protocol: RequestHandler = raw.protocol
    protocol.force_close()
    if raw.transport is not None:
        raw.transport.abort()
