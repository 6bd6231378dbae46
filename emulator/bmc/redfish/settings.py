# SPDX-License-Identifier: Apache-2.0
"""The `redfish` section of a scenario."""

from __future__ import annotations

from dataclasses import dataclass, field
from typing import Any, Mapping, Sequence

from bmc.archive import LARGEST
from bmc.http.script import Answer, read_answers
from bmc.redfish.diagnostic_settings import DiagnosticSettings, read_diagnostics
from bmc.redfish.shape_settings import ShapeSettings, read_shape
from bmc.redfish.steps import TaskStep, check_state, read_steps
from bmc.scenario import ROLES, Checker

NEW_TASK_PATHS = (1, 6, 0)  # the first version with the task collection below TaskService
WISHES = ("task_state", "id", "path", "no_id")
EXPORT_ACTIONS = ("offered", "unlisted", "missing")
ETAGS = ("strong", "weak", "none")
_MEMBERS = (
    "version", "archive", "task_states", "task_step_seconds", "export_action", "accounts", "sessions",
    "download", "diagnostics", "shape", "answers",
)
_LONGEST = 86400  # seconds
_MANY = 1 << 31


@dataclass(frozen=True)
class ArchiveSettings:
    """Sizes in bytes; None: as large as the content."""

    size: int | None = None
    mini_size: int | None = None
    name: str | None = None
    seed: int | None = None
    damaged: bool = False


@dataclass(frozen=True)
class SessionSettings:
    """How many sessions there can be, and for how long."""

    limit: int = 64  # clients forget to log out
    when_full: str = "oldest"  # gives way; "refuse": the new one is refused
    seconds: float = 1800  # without a request
    open: Sequence[str] = ()  # the users of those that are open from the start


@dataclass(frozen=True)
class DownloadSettings:
    """How archives are handed out."""

    ranges: bool = False
    etag: str = "strong"
    last_modified: bool = True
    replaced_after: int | None = None  # downloads, until another archive lies in its place
    heed_if_range: bool = True


@dataclass(frozen=True)
class RedfishSettings:
    """What the Redfish service is to be."""

    version: str | None = "1.15.0"
    archive: ArchiveSettings = ArchiveSettings()
    task_steps: Sequence[TaskStep] = ()
    task_step_seconds: float | None = None  # None: each poll is a step
    export_action: str = "offered"
    accounts: Mapping[str, tuple[str, str]] = field(default_factory=dict)  # password and role by name
    sessions: SessionSettings = SessionSettings()
    download: DownloadSettings = DownloadSettings()
    diagnostics: DiagnosticSettings = DiagnosticSettings()
    shape: ShapeSettings | None = None  # in place of the own systems, chassis and managers
    answers: Mapping[str, Sequence[Answer]] = field(default_factory=dict)

    @property
    def has_task_service(self) -> bool:
        """Whether tasks lie below TaskService (newer) or below Tasks (older)."""
        pieces = (self.version or "").split(".")
        if len(pieces) != 3 or not all(piece.isdecimal() for piece in pieces):
            return True
        return tuple(map(int, pieces)) >= NEW_TASK_PATHS


def read_redfish(check: Checker, value: Any) -> RedfishSettings:
    """Reads and checks the section."""
    place = ("redfish",)
    entry = check.mapping(value, place, _MEMBERS)
    version = entry.get("version", "1.15.0")
    answers = read_answers(check, entry.get("answers"), place + ("answers",), WISHES)
    _check_wishes(check, answers)
    action = entry.get("export_action", "offered")
    return RedfishSettings(
        version=None if version is None else check.text(version, place + ("version",)),
        archive=_read_archive(check, entry.get("archive")),
        task_steps=read_steps(check, entry.get("task_states"), place + ("task_states",)),
        task_step_seconds=_seconds(check, entry, "task_step_seconds"),
        export_action=check.choice(action, place + ("export_action",), EXPORT_ACTIONS),
        accounts=_read_accounts(check, entry.get("accounts")),
        sessions=_read_sessions(check, entry.get("sessions")),
        download=_read_download(check, entry.get("download")),
        diagnostics=read_diagnostics(check, entry.get("diagnostics")),
        shape=read_shape(check, entry.get("shape")),
        answers=answers,
    )


def _seconds(check: Checker, entry: Mapping[str, Any], name: str) -> float | None:
    value = entry.get(name)
    return None if value is None else check.number(value, ("redfish", name), 0.001, _LONGEST)


def _count(check: Checker, entry: Mapping[str, Any], place: tuple, name: str) -> int | None:
    value = entry.get(name)
    return None if value is None else check.whole(value, place + (name,), 0, _MANY)


def _check_wishes(check: Checker, answers: Mapping[str, Sequence[Answer]]) -> None:
    for key, entries in answers.items():
        for number, answer in enumerate(entries):
            place = ("redfish", "answers", key, number)
            if "task_state" in answer.wishes:
                check_state(check, answer.wishes["task_state"], place + ("task_state",))
            if "id" in answer.wishes and isinstance(answer.wishes["id"], (dict, list)):
                check.fail(place + ("id",), "must be text, a number or null")
            if answer.wishes.get("path") is not None:
                check.text(answer.wishes["path"], place + ("path",))
            if "no_id" in answer.wishes:
                check.flag(answer.wishes["no_id"], place + ("no_id",))


def _read_archive(check: Checker, value: Any) -> ArchiveSettings:
    place = ("redfish", "archive")
    entry = check.mapping(value, place, ("size", "mini_size", "name", "seed", "damaged"))

    def whole(name: str, high: int) -> int | None:
        given = entry.get(name)
        return None if given is None else check.whole(given, place + (name,), 0, high)

    name = entry.get("name")
    if name is not None and not _plain(check.text(name, place + ("name",))):
        check.fail(place + ("name",), "must be one plain file name; answers can announce other paths")
    damaged = check.flag(entry.get("damaged", False), place + ("damaged",))
    return ArchiveSettings(
        whole("size", LARGEST), whole("mini_size", LARGEST), name, whole("seed", 2**63), damaged
    )


def _plain(name: str) -> bool:
    return name not in ("", ".", "..") and "/" not in name and "\0" not in name and len(name) <= 200


def _read_accounts(check: Checker, value: Any) -> Mapping[str, tuple[str, str]]:
    place = ("redfish", "accounts")
    accounts = {}
    for user, item in check.mapping(value, place).items():
        entry = check.mapping(item, place + (user,), ("password", "role"))
        if "password" not in entry:
            check.fail(place + (user,), "password is missing")
        accounts[user] = (
            check.text(entry["password"], place + (user, "password")),
            check.choice(entry.get("role", ROLES[0]), place + (user, "role"), ROLES),
        )
    return accounts


def _read_sessions(check: Checker, value: Any) -> SessionSettings:
    place, usual = ("redfish", "sessions"), SessionSettings()
    entry = check.mapping(value, place, ("limit", "when_full", "seconds", "open"))
    users = check.sequence(entry.get("open", []), place + ("open",))
    when_full = entry.get("when_full", usual.when_full)
    settings = SessionSettings(
        limit=check.whole(entry.get("limit", usual.limit), place + ("limit",), 1, 100000),
        when_full=check.choice(when_full, place + ("when_full",), ("oldest", "refuse")),
        seconds=check.number(entry.get("seconds", usual.seconds), place + ("seconds",), 0.01, _LONGEST),
        open=tuple(check.text(user, place + ("open", n)) for n, user in enumerate(users)),
    )
    if len(settings.open) > settings.limit:
        check.fail(place + ("open",), "are more than limit allows")
    return settings


def _read_download(check: Checker, value: Any) -> DownloadSettings:
    place, usual = ("redfish", "download"), DownloadSettings()
    entry = check.mapping(
        value, place, ("ranges", "etag", "last_modified", "replaced_after", "heed_if_range")
    )

    def flag(name: str, own: bool) -> bool:
        return check.flag(entry.get(name, own), place + (name,))

    return DownloadSettings(
        ranges=flag("ranges", usual.ranges),
        etag=check.choice(entry.get("etag", usual.etag), place + ("etag",), ETAGS),
        last_modified=flag("last_modified", usual.last_modified),
        replaced_after=_count(check, entry, place, "replaced_after"),
        heed_if_range=flag("heed_if_range", usual.heed_if_range),
    )
