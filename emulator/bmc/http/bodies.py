# SPDX-License-Identifier: Apache-2.0
"""Bodies of answers. All of them stream: none is ever whole in memory unless it is small."""

from __future__ import annotations

from dataclasses import dataclass
from pathlib import Path
from typing import Iterator, Protocol, Sequence, Union

Chunk = Union[bytes, memoryview]

CHUNK = 128 * 1024  # measured: faster over TLS on loopback than 32 KiB and than 512 KiB


class Body(Protocol):
    """Something to send, of a length known beforehand."""

    @property
    def size(self) -> int: ...

    def chunks(self) -> Iterator[Chunk]: ...


@dataclass(frozen=True)
class BytesBody:
    """A few bytes."""

    data: bytes = b""

    @property
    def size(self) -> int:
        return len(self.data)

    def chunks(self) -> Iterator[Chunk]:
        view = memoryview(self.data)
        for start in range(0, len(view), CHUNK):
            yield view[start : start + CHUNK]


@dataclass(frozen=True)
class FileBody:
    """A file, or a part of it, read as it is sent."""

    path: Path
    first: int = 0
    count: int | None = None  # bytes; None: to the end

    @property
    def size(self) -> int:
        return self.path.stat().st_size - self.first if self.count is None else self.count

    def chunks(self) -> Iterator[Chunk]:
        left = self.size
        with open(self.path, "rb", buffering=0) as file:
            file.seek(self.first)
            while left and (data := file.read(min(left, CHUNK))):
                left -= len(data)
                yield data


@dataclass(frozen=True)
class RepeatBody:
    """Texts, each repeated; for bodies that are too large to be written into a scenario."""

    parts: Sequence[tuple[bytes, int]]

    @property
    def size(self) -> int:
        return sum(len(text) * count for text, count in self.parts)

    def chunks(self) -> Iterator[Chunk]:
        for text, count in self.parts:
            if not text:
                continue
            many = max(1, CHUNK // len(text))
            large = text * min(many, count)
            for _ in range(count // many):
                yield large
            if count % many:
                yield text * (count % many)
