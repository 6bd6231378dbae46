# SPDX-License-Identifier: Apache-2.0
"""HTTP as the CIM server speaks it, byte for byte: its spelling, its order, its omissions.

A web framework is of no use here: it would add a Date, put a length on every answer, fold the
trailers away and refuse requests that the server takes.
"""

from __future__ import annotations

import asyncio
import re
from dataclasses import dataclass, field, replace
from http import HTTPStatus
from typing import Iterator, Mapping

from bmc.http.bodies import Body, BytesBody, Chunk
from bmc.http.head import NotHttp, read_head
from bmc.http.messages import LARGEST_REQUEST, Request, changed

_PATIENCE = 60.0  # seconds for the rest of a request that has begun
_MAN = re.compile(r'\s*"?http://www\.dmtf\.org/cim/mapping/http/v1\.0"?\s*;\s*ns\s*=\s*"?(\d+)"?')


@dataclass(frozen=True)
class HttpRequest(Request):
    """A request with the version of its protocol."""

    version: str = "HTTP/1.1"

    @property
    def prefix(self) -> str | None:
        """What stands before the CIM headers' names: nothing, or of an M-POST "73-"."""
        if self.method != "M-POST":
            return ""
        man = _MAN.match(self.header("Man") or "")
        return f"{man.group(1)}-" if man else None

    def cim_header(self, name: str) -> str | None:
        return self.header((self.prefix or "") + name)

    @property
    def wants_trailers(self) -> bool:
        codings = [word.strip().lower() for word in (self.header("TE") or "").split(",")]
        return "trailers" in codings

    @property
    def wants_close(self) -> bool:
        return "close" in (self.header("Connection") or "").lower()


@dataclass
class HttpReply:
    """An answer. Header lines keep their order; a name alone is a line too."""

    status: int
    headers: list[tuple[str, str]] = field(default_factory=list)
    body: Body = BytesBody()
    chunk_size: int | None = None  # None: not chunked
    trailer: list[tuple[str, str]] = field(default_factory=list)
    close: bool = False  # afterwards

    def set(self, changes: Mapping[str, str | None]) -> None:
        """Replaces headers in their place, adds others at the end, removes those that are None."""
        self.headers = changed(self.headers, changes)

    def head(self) -> bytes:
        lines = [f"HTTP/1.1 {self.status} {_reason(self.status)}"]
        lines += [f"{name}: {value}" if value else f"{name}:" for name, value in self.headers]
        return _latin("\r\n".join(lines) + "\r\n\r\n")

    def pieces(self) -> Iterator[Chunk]:
        """The body as it goes out, with the frames of the chunks and the trailer."""
        if self.chunk_size is None:
            yield from self.body.chunks()
            return
        for part in _cut(self.body.chunks(), self.chunk_size):
            yield b"%x\r\n" % len(part) + part + b"\r\n"
        trailer = "".join(f"{name}: {value}\r\n" for name, value in self.trailer)
        yield b"0\r\n" + _latin(trailer) + b"\r\n"


async def read_request(reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> HttpRequest | None:
    """The next request; None when the client has gone. Waits for its start as long as it takes."""
    first = await reader.read(1)
    if not first:
        return None
    if not first.isalpha() or not first.isupper():
        raise NotHttp
    try:
        return await asyncio.wait_for(_rest(first, reader, writer), _PATIENCE)
    except (asyncio.IncompleteReadError, asyncio.TimeoutError):
        return None
    except asyncio.LimitOverrunError:
        raise NotHttp from None


async def _rest(
    first: bytes, reader: asyncio.StreamReader, writer: asyncio.StreamWriter
) -> HttpRequest:
    head = read_head(first + await reader.readuntil(b"\r\n\r\n"))
    request = HttpRequest(head.method, head.path, head.query, head.headers, b"", head.version)
    if (request.header("Expect") or "").lower() == "100-continue":
        writer.write(b"HTTP/1.1 100 Continue\r\n\r\n")
    return replace(request, body=await _body(request, reader))


async def _body(request: HttpRequest, reader: asyncio.StreamReader) -> bytes:
    if "chunked" in (request.header("Transfer-Encoding") or "").lower():
        return await _chunks(reader)
    length = request.header("Content-Length") or "0"
    if not length.isdecimal() or int(length) > LARGEST_REQUEST:
        raise NotHttp
    return await reader.readexactly(int(length))


async def _chunks(reader: asyncio.StreamReader) -> bytes:
    body = bytearray()
    while True:
        size = (await reader.readuntil(b"\r\n")).partition(b";")[0].strip()
        if not re.fullmatch(rb"[0-9A-Fa-f]{1,8}", size) or len(body) + int(size, 16) > LARGEST_REQUEST:
            raise NotHttp
        if int(size, 16) == 0:
            break
        body += (await reader.readexactly(int(size, 16) + 2))[:-2]
    while await reader.readuntil(b"\r\n") != b"\r\n":
        pass
    return bytes(body)


def _cut(chunks: Iterator[Chunk], size: int) -> Iterator[bytes]:
    """The same bytes in pieces of `size`, the last one as it comes."""
    held = b""
    for chunk in chunks:
        held += chunk
        while len(held) > size:
            yield held[:size]
            held = held[size:]
    if held:
        yield held


def _reason(status: int) -> str:
    try:
        return HTTPStatus(status).phrase
    except ValueError:
        return "Status"


def _latin(text: str) -> bytes:
    """Header bytes: Latin-1 where it can be, UTF-8 where it cannot."""
    try:
        return text.encode("latin-1")
    except UnicodeEncodeError:
        return text.encode("utf-8", "surrogateescape")
