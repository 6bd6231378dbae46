# SPDX-License-Identifier: Apache-2.0
"""Several people's sessions at once: who sees them, who may end them, and how many there can be."""

from __future__ import annotations

import time
from typing import Any

import pytest

from conftest import EXPORT, FULL_EXPORT, ROOT, SESSIONS, Answer, Bmc, Starter

ACCOUNTS = {"olga": {"password": "olgas-secret", "role": "Operator"},
            "ruth": {"password": "ruths-secret", "role": "ReadOnly"}}


def log_in(bmc: Bmc, user: str, password: str) -> Answer:
    return bmc.post(SESSIONS, {"UserName": user, "Password": password}, anonymous=True)


def holder(session: Answer) -> dict[str, Any]:
    """Arguments of a request that carries the session's token."""
    return {"headers": {"X-Auth-Token": session.headers["X-Auth-Token"]}, "anonymous": True}


def users_of_sessions(bmc: Bmc) -> list[str]:
    members = bmc.get(SESSIONS).json()["Members"]
    return [bmc.get(link["@odata.id"]).json()["UserName"] for link in members]


def test_several_users_have_sessions_at_once(start: Starter) -> None:
    bmc = start({"redfish": {"accounts": ACCOUNTS}})
    for user, password in ((bmc.user, bmc.password), ("olga", "olgas-secret"), (bmc.user, bmc.password)):
        assert log_in(bmc, user, password).status == 201

    assert users_of_sessions(bmc) == ["admin", "olga", "admin"]
    assert log_in(bmc, "olga", "ruths-secret").status == 401
    assert [a["UserName"] for a in (bmc.get(link["@odata.id"]).json() for link in
            bmc.get(ROOT + "AccountService/Accounts").json()["Members"])] == ["admin", "olga", "ruth"]


def test_a_session_tells_its_user_and_when_it_was_made(bmc: Bmc) -> None:
    session = bmc.get(log_in(bmc, bmc.user, bmc.password).headers["Location"]).json()

    assert session["UserName"] == bmc.user
    assert session["CreatedTime"].endswith("Z")
    assert session["Password"] is None


def test_sessions_of_others_can_be_open_from_the_start(start: Starter) -> None:
    bmc = start({"redfish": {"sessions": {"open": ["service", "admin"]}}})

    assert users_of_sessions(bmc) == ["service", "admin"]


def test_who_is_no_administrator_ends_his_own_sessions_alone(start: Starter) -> None:
    bmc = start({"redfish": {"accounts": ACCOUNTS}})
    admins, olgas, second = (log_in(bmc, bmc.user, bmc.password), log_in(bmc, "olga", "olgas-secret"),
                             log_in(bmc, "olga", "olgas-secret"))

    assert bmc.ask("DELETE", admins.headers["Location"], **holder(olgas)).status == 403
    assert bmc.ask("DELETE", second.headers["Location"], **holder(olgas)).status == 204
    assert bmc.ask("DELETE", olgas.headers["Location"], **holder(admins)).status == 204
    assert users_of_sessions(bmc) == ["admin"]
    assert bmc.ask("DELETE", olgas.headers["Location"]).status == 404


def test_deletions_stand_in_the_record(start: Starter) -> None:
    bmc = start()
    location = log_in(bmc, bmc.user, bmc.password).headers["Location"]
    bmc.ask("DELETE", location)

    assert [r["path"] for r in bmc.requests() if r["method"] == "DELETE"] == [location]


def test_the_role_is_that_of_who_asks(start: Starter) -> None:
    bmc = start({"redfish": {"accounts": ACCOUNTS}})
    olgas, ruths = log_in(bmc, "olga", "olgas-secret"), log_in(bmc, "ruth", "ruths-secret")

    assert bmc.post(EXPORT, FULL_EXPORT, **holder(ruths)).status == 403
    assert bmc.post(EXPORT, FULL_EXPORT, **holder(olgas)).status == 202


def test_the_oldest_session_gives_way(start: Starter) -> None:
    bmc = start({"redfish": {"sessions": {"limit": 2}}})
    first, second, third = (log_in(bmc, bmc.user, bmc.password) for _ in range(3))

    assert bmc.get(ROOT + "Systems", **holder(first)).status == 401
    assert [bmc.get(ROOT + "Systems", **holder(s)).status for s in (second, third)] == [200, 200]


def test_or_the_new_one_is_refused(start: Starter) -> None:
    bmc = start({"redfish": {"sessions": {"limit": 1, "when_full": "refuse"}}})
    first = log_in(bmc, bmc.user, bmc.password)

    refused = log_in(bmc, bmc.user, bmc.password)
    assert (refused.status, refused.json()["error"]["code"]) == (503, "Base.1.12.SessionLimitExceeded")
    assert bmc.ask("DELETE", first.headers["Location"]).status == 204
    assert log_in(bmc, bmc.user, bmc.password).status == 201


@pytest.mark.parametrize("seconds, status", [(0.2, 401), (60, 200)])
def test_sessions_end_when_nobody_uses_them(start: Starter, seconds: float, status: int) -> None:
    bmc = start({"redfish": {"sessions": {"seconds": seconds}}})
    session = log_in(bmc, bmc.user, bmc.password)
    time.sleep(0.5)

    assert bmc.get(ROOT + "Systems", **holder(session)).status == status
