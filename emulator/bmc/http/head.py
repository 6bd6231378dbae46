# SPDX-License-Identifier: Apache-2.0
"""The head of a request (RFC 9112, sections 3 and 5), for what no web framework takes."""

from __future__ import annotations

import re
from dataclasses import dataclass
from typing import Mapping

from bmc.record import header_map

LONGEST_HEAD = 64 * 1024  # bytes, and of each of its lines
_REQUEST_LINE = re.compile(rb"([A-Za-z0-9!#$%&'*+.^_`|~-]+) (\S+) (HTTP/1\.[01])")


class NotHttp(Exception):
    """What came is no HTTP request: a TLS hello on the plain port, or worse."""


@dataclass(frozen=True)
class Head:
    """Request line and headers as they were received."""

    method: str
    path: str
    query: str
    version: str
    headers: Mapping[str, str]


def read_head(data: bytes) -> Head:
    """`data`: all of it, with or without the empty line at its end. Throws NotHttp."""
    lines = data.rstrip(b"\r\n").split(b"\r\n")
    start = _REQUEST_LINE.fullmatch(lines[0])
    if not start:
        raise NotHttp
    method, target, version = (part.decode("latin-1") for part in start.groups())
    path, _, query = target.partition("?")
    return Head(method, path, query, version, header_map(_header(line) for line in lines[1:]))


def _header(line: bytes) -> tuple[bytes, bytes]:
    name, colon, value = line.partition(b":")
    if not colon:
        raise NotHttp
    return name, value.strip(b" \t")
