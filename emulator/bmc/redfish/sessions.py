# SPDX-License-Identifier: Apache-2.0
"""Sessions and basic authentication."""

from __future__ import annotations

import base64
import binascii
import hmac
import secrets
import time
from dataclasses import dataclass, field

from bmc.http.messages import Request

SESSION_TIMEOUT = 1800  # seconds without a request
LARGEST_COUNT = 64  # sessions; the oldest gives way, because clients forget to log out


@dataclass
class Session:
    id: str
    token: str
    user: str
    used: float = field(default_factory=time.monotonic)


class Sessions:
    """Who may come in."""

    def __init__(self, user: str, password: str) -> None:
        self._user = user
        self._password = password
        self._by_id: dict[str, Session] = {}
        self._last = 0

    def knows(self, user: str, password: str) -> bool:
        """Whether the credentials are those of the account."""
        same_user = hmac.compare_digest(user.encode("utf-8", "surrogatepass"), self._user.encode())
        given = password.encode("utf-8", "surrogatepass")
        return hmac.compare_digest(given, self._password.encode()) and same_user

    def open(self, user: str) -> Session:
        while len(self._by_id) >= LARGEST_COUNT:
            del self._by_id[next(iter(self._by_id))]
        self._last += 1
        session = Session(str(self._last), secrets.token_hex(16), user)
        self._by_id[session.id] = session
        return session

    def close(self, id_: str) -> None:
        del self._by_id[id_]

    def all(self) -> dict[str, Session]:
        """The open sessions by their id."""
        now = time.monotonic()
        for id_ in [s.id for s in self._by_id.values() if now - s.used > SESSION_TIMEOUT]:
            del self._by_id[id_]
        return self._by_id

    def admits(self, request: Request) -> bool:
        """Whether a request carries a valid token or, without one, valid basic credentials."""
        token = request.header("X-Auth-Token")
        if token is not None:
            return self._admits_token(token)
        scheme, _, value = (request.header("Authorization") or "").partition(" ")
        return scheme.lower() == "basic" and self._admits_basic(value.strip())

    def _admits_token(self, token: str) -> bool:
        session = next((s for s in self.all().values() if s.token == token), None)
        if session is not None:
            session.used = time.monotonic()
        return session is not None

    def _admits_basic(self, value: str) -> bool:
        try:
            pair = base64.b64decode(value, validate=True).decode("utf-8")
        except (binascii.Error, ValueError):
            return False
        user, _, password = pair.partition(":")
        return self.knows(user, password)
