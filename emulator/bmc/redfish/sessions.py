# SPDX-License-Identifier: Apache-2.0
"""Accounts, sessions and basic authentication."""

from __future__ import annotations

import datetime
import hmac
import secrets
import time
from dataclasses import dataclass, field
from typing import Mapping

from bmc.http.basic import basic_credentials
from bmc.http.messages import Request
from bmc.redfish.errors import RedfishError
from bmc.redfish.settings import SessionSettings


@dataclass(frozen=True)
class Account:
    """One account that may log in."""

    user: str
    password: str
    role: str


@dataclass
class Session:
    id: str
    token: str
    user: str
    created: datetime.datetime = field(default_factory=lambda: datetime.datetime.now(datetime.timezone.utc))
    used: float = field(default_factory=time.monotonic)


class Sessions:
    """Who may come in."""

    def __init__(self, accounts: Mapping[str, Account], settings: SessionSettings) -> None:
        self._accounts = accounts
        self._settings = settings
        self._by_id: dict[str, Session] = {}
        self._last = 0
        for user in settings.open:  # those of other people, who were here before
            self.open(user)

    def knows(self, user: str, password: str) -> bool:
        """Whether the credentials are those of an account."""
        account = self._accounts.get(user)
        wanted = account.password.encode() if account else b""
        given = password.encode("utf-8", "surrogatepass")
        return hmac.compare_digest(given, wanted) and account is not None

    def open(self, user: str) -> Session:
        """A new session; where there are too many, the oldest gives way or the new one is refused."""
        while len(self.all()) >= self._settings.limit:
            if self._settings.when_full == "refuse":
                raise RedfishError("SessionLimitExceeded")
            del self._by_id[next(iter(self._by_id))]
        self._last += 1
        session = Session(str(self._last), secrets.token_hex(16), user)
        self._by_id[session.id] = session
        return session

    def close(self, id_: str) -> None:
        del self._by_id[id_]

    def forget(self) -> None:
        """All of them, as a BMC does that restarts."""
        self._by_id.clear()

    def all(self) -> dict[str, Session]:
        """The open sessions by their id."""
        now = time.monotonic()
        for id_ in [s.id for s in self._by_id.values() if now - s.used > self._settings.seconds]:
            del self._by_id[id_]
        return self._by_id

    def account_of(self, request: Request) -> Account | None:
        """Whose valid token a request carries or, without a token, whose valid basic credentials."""
        token = request.header("X-Auth-Token")
        if token is not None:
            return self._account_of_token(token)
        pair = basic_credentials(request.header("Authorization"))
        return None if pair is None else self._account_of_basic(pair)

    def _account_of_token(self, token: str) -> Account | None:
        session = next((s for s in self.all().values() if s.token == token), None)
        if session is None:
            return None
        session.used = time.monotonic()
        return self._accounts[session.user]

    def _account_of_basic(self, pair: bytes) -> Account | None:
        try:
            user, _, password = pair.decode("utf-8").partition(":")
        except UnicodeDecodeError:
            return None
        return self._accounts[user] if self.knows(user, password) else None
