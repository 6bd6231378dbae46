# SPDX-License-Identifier: Apache-2.0
"""How bytes leave: at a pace, up to a point, and then all that is on its way."""

from __future__ import annotations

import asyncio
import time
from typing import Iterator

from bmc.http.bodies import Chunk

FLUSH_SECONDS = 10.0  # how long what is sent may take to reach a slow reader
_PIECES_A_SECOND = 10  # of an answer that keeps a rate


def paced(chunks: Iterator[Chunk], limit: int | None, rate: int | None) -> Iterator[Chunk | float]:
    """Chunks up to `limit` bytes; a float among them is a pause in seconds that keeps the rate (bytes a second)."""
    start, sent = time.monotonic(), 0
    piece = max(1, rate // _PIECES_A_SECOND) if rate else None
    for chunk in chunks:
        for part in _pieces(chunk, piece):
            if limit is not None:
                part = part[: limit - sent]
            if len(part):
                yield part
            sent += len(part)
            if limit is not None and sent >= limit:
                return
            if rate:
                yield max(0.0, start + sent / rate - time.monotonic())


def _pieces(chunk: Chunk, size: int | None) -> Iterator[Chunk]:
    if size is None:
        yield chunk
        return
    for start in range(0, len(chunk), size):
        yield chunk[start : start + size]


async def flush(transport: asyncio.WriteTransport | None) -> None:
    """Waits until the bytes written so far are with the kernel, so that a cut loses none of them."""
    deadline = time.monotonic() + FLUSH_SECONDS
    while _unsent(transport) and time.monotonic() < deadline:
        await asyncio.sleep(0.002)


def _unsent(transport: asyncio.WriteTransport | None) -> int:
    """With TLS there is a second buffer below the first."""
    if transport is None or transport.is_closing():
        return 0
    below = getattr(getattr(transport, "_ssl_protocol", None), "_transport", None)
    return transport.get_write_buffer_size() + (below.get_write_buffer_size() if below is not None else 0)
