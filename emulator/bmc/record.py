# SPDX-License-Identifier: Apache-2.0
"""The record of what was asked: one JSON line per request, on disk before the answer goes out."""

from __future__ import annotations

import json
import os
from pathlib import Path
from typing import Any, Iterable, Mapping


class RequestRecord:
    """Appends requests to a file that only its owner can read: it holds passwords as they came."""

    def __init__(self, path: Path) -> None:
        self.path = path
        # Not buffered: each line is one write, whole or not at all for whoever reads along.
        self._file = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_APPEND | os.O_TRUNC, 0o600)
        os.fchmod(self._file, 0o600)

    def add(self, service: str, entry: Mapping[str, Any]) -> None:
        line = json.dumps({"service": service, **entry}) + "\n"
        os.write(self._file, line.encode("ascii"))


def header_map(raw: Iterable[tuple[bytes, bytes]]) -> dict[str, str]:
    """Header names as they were spelled; a repeated one becomes a list in one value."""
    headers: dict[str, str] = {}
    for name_bytes, value_bytes in raw:
        name, value = decoded(name_bytes), decoded(value_bytes)
        headers[name] = f"{headers[name]}, {value}" if name in headers else value
    return headers


def decoded(data: bytes) -> str:
    """Any bytes as text that JSON can hold; what is not UTF-8 becomes lone surrogates."""
    return data.decode("utf-8", "surrogateescape")
