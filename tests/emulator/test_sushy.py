# SPDX-License-Identifier: Apache-2.0
"""A stranger's Redfish library, OpenStack's sushy: it logs in, resets, follows tasks, and reads messages by registry."""

from __future__ import annotations

import os
from typing import Any, Iterator

import pytest
import sushy
from sushy import auth, exceptions
from sushy.taskmonitor import TaskMonitor

from conftest import EXPORT, FULL_EXPORT, Bmc, Starter, clean_environment


@pytest.fixture(autouse=True)
def undisturbed(monkeypatch: pytest.MonkeyPatch) -> None:
    """Debian's package lacks the registries that come along with sushy: only the BMC's own are left."""
    monkeypatch.setattr(sushy.Sushy, "_get_standard_message_registry_collection", lambda _: [])
    for name in set(os.environ) - set(clean_environment()):
        monkeypatch.delenv(name)


def connected(bmc: Bmc, user: str | None = None, password: str | None = None) -> sushy.Sushy:
    """With a session of its own, over the certificate of the ready line."""
    session = auth.SessionAuth(user or bmc.user, password or bmc.password)
    return sushy.Sushy(bmc.url + "/", auth=session, verify=bmc.ready["redfish"]["certificate"])


@pytest.fixture
def root(bmc: Bmc) -> Iterator[sushy.Sushy]:
    service = connected(bmc)
    yield service
    service._auth.close()


def test_it_knows_the_machine(bmc: Bmc, root: sushy.Sushy) -> None:
    machine = bmc.ready["machine"]
    manager = root.get_manager()

    assert (root.redfish_version, root.uuid) == ("1.15.0", machine["uuid"])
    assert root.get_system().uuid == manager.uuid == machine["uuid"]
    assert root.get_chassis().serial_number == machine["serial"]
    assert manager.firmware_version == machine["firmware"]


def test_it_sees_its_own_session_and_closes_it(start: Starter) -> None:
    bmc = start({"redfish": {"accounts": {"olga": {"password": "olgas-secret"}}}})
    admins, olgas = connected(bmc), connected(bmc, "olga", "olgas-secret")

    assert [s.username for s in admins.get_session_service().sessions.get_members()] == ["admin", "olga"]
    olgas._auth.close()
    sessions = admins.get_session_service().sessions
    sessions.refresh(force=True)
    assert [s.username for s in sessions.get_members()] == ["admin"]
    admins._auth.close()


def test_a_wrong_password_is_refused(bmc: Bmc) -> None:
    with pytest.raises(exceptions.AccessError):
        connected(bmc, password="wrong")


def test_it_switches_the_host_off_and_on(start: Starter) -> None:
    root = connected(start())
    system = root.get_system()
    for reset, power in ((sushy.ResetType.GRACEFUL_SHUTDOWN, sushy.PowerState.OFF),
                         (sushy.ResetType.ON, sushy.PowerState.ON)):
        system.reset_system(reset)
        system.refresh(force=True)
        assert system.power_state == power
    with pytest.raises(exceptions.InvalidParameterValueError):
        system.reset_system("Sideways")
    root._auth.close()


def test_a_bmc_that_restarts_forgets_sessions_and_tasks(start: Starter) -> None:
    bmc = start()
    root = connected(bmc)
    root._conn.post(EXPORT, data=FULL_EXPORT)
    root.get_manager().reset_manager(sushy.ResetType.GRACEFUL_RESTART)

    assert bmc.get("/redfish/v1/SessionService/Sessions").json()["Members"] == []
    assert bmc.get("/redfish/v1/TaskService/Tasks").json()["Members"] == []


def test_it_follows_an_export_to_its_end(start: Starter) -> None:
    root = connected(start({"redfish": {"task_states": ["New", "Running", "Running", "Completed"]}}))
    answer = root._conn.post(EXPORT, data=FULL_EXPORT)
    monitor = TaskMonitor(root._conn, answer.headers["Location"])  # polls once already
    polls = 0
    while monitor.check_is_processing:
        polls += 1
        assert polls < 10

    task = monitor.get_task()
    assert (polls, task.task_state, task.percent_complete) == (2, sushy.TaskState.COMPLETED, 100)
    root._auth.close()


def test_it_reads_the_reason_of_a_failure_by_the_bmcs_registries(start: Starter) -> None:
    """It forms the texts itself, from MessageId, MessageArgs and what the registries say."""
    step: dict[str, Any] = {"state": "Exception", "messages": [
        {"name": "ExportLoginRefused", "args": ["sftp://store", "olga"]}, "Nothing was sent."]}
    root = connected(start({"redfish": {"task_states": [step]}}))
    root._conn.post(EXPORT, data=FULL_EXPORT)
    (task,) = root.get_task_service().tasks.get_members()
    for message in task.messages:
        message.message = None
    task.parse_messages()

    assert task.task_state == sushy.TaskState.EXCEPTION
    assert [(m.message, m.severity) for m in task.messages] == [
        ("Task 1 has started.", sushy.Health.OK),
        ("The file store sftp://store refused the login of user olga.", sushy.Health.CRITICAL),
        ("Nothing was sent.", sushy.Health.OK),
    ]
    assert task.messages[1].resolution.startswith("Correct the user or the password")
    root._auth.close()
