# SPDX-License-Identifier: Apache-2.0
"""What comes in and what goes out, freed of the web framework."""

from __future__ import annotations

from dataclasses import dataclass, field
from typing import Any, Mapping, Protocol
from urllib.parse import unquote

from bmc.http.bodies import Body, BytesBody


@dataclass(frozen=True)
class Request:
    """A request as it was received; the path is neither decoded nor normalised."""

    method: str
    path: str
    query: str
    headers: Mapping[str, str]
    body: bytes

    def header(self, name: str) -> str | None:
        """A header by its name, in any spelling."""
        wanted = name.lower()
        return next((v for k, v in self.headers.items() if k.lower() == wanted), None)

    @property
    def decoded_path(self) -> str:
        return unquote(self.path)


@dataclass
class Reply:
    """An answer to send."""

    status: int = 200
    headers: dict[str, str] = field(default_factory=dict)
    body: Body = BytesBody()


class WebService(Protocol):
    """A service of the BMC that speaks HTTP."""

    name: str

    async def answer(self, request: Request, wishes: Mapping[str, Any]) -> Reply:
        """The service's own answer; `wishes` are the scenario's changes to its content."""

    def empty_answer(self, request: Request, status: int) -> Reply:
        """What the service sends with a status that the scenario gives without a body."""
