# SPDX-License-Identifier: Apache-2.0
"""What comes in and what goes out, freed of the web framework."""

from __future__ import annotations

from dataclasses import dataclass, field
from typing import Any, Iterable, Mapping, Protocol
from urllib.parse import unquote

from bmc.http.bodies import Body, BytesBody
from bmc.record import decoded


LARGEST_REQUEST = 16 * 1024 * 1024  # bytes of a body that is looked at


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

    def entry(self) -> dict[str, Any]:
        """For the record."""
        return {
            "method": self.method, "path": self.path, "query": self.query, "headers": dict(self.headers),
            "body": decoded(self.body),
        }


@dataclass
class Reply:
    """An answer to send."""

    status: int = 200
    headers: dict[str, str] = field(default_factory=dict)
    body: Body = BytesBody()


def changed(
    headers: Iterable[tuple[str, str]], changes: Mapping[str, str | None]
) -> list[tuple[str, str]]:
    """Replaces headers in their place, whatever the spelling, adds others at the end, removes those that are None."""
    known = {name.lower(): (name, value) for name, value in changes.items()}
    result = []
    for name, value in headers:
        new_name, new_value = known.pop(name.lower(), (name, value))
        if new_value is not None:
            result.append((new_name, new_value))
    return result + [(name, value) for name, value in known.values() if value is not None]


class WebService(Protocol):
    """A service of the BMC that speaks HTTP."""

    name: str

    async def answer(self, request: Request, wishes: Mapping[str, Any]) -> Reply:
        """The service's own answer; `wishes` are the scenario's changes to its content."""

    def empty_answer(self, request: Request, status: int) -> Reply:
        """What the service sends with a status that the scenario gives without a body."""
