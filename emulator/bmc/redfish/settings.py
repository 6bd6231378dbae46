# SPDX-License-Identifier: Apache-2.0
"""The `redfish` section of a scenario."""

from __future__ import annotations

from dataclasses import dataclass, field
from typing import Any, Mapping, Sequence

from bmc.archive import LARGEST
from bmc.http.script import Answer, read_answers
from bmc.scenario import Checker

NEW_TASK_PATHS = (1, 6, 0)  # the first version with the task collection below TaskService
WISHES = ("task_state", "id", "path", "no_id")
_MEMBERS = ("version", "archive", "task_states", "answers")
_STATES = ("New", "Starting", "Running", "Running", "Completed")


@dataclass(frozen=True)
class ArchiveSettings:
    """Sizes in bytes; None: as large as the content."""

    size: int | None = None
    mini_size: int | None = None
    name: str | None = None
    seed: int | None = None


@dataclass(frozen=True)
class RedfishSettings:
    """What the Redfish service is to be."""

    version: str | None = "1.15.0"
    archive: ArchiveSettings = ArchiveSettings()
    task_states: Sequence[Any] = _STATES
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
    states = check.sequence(entry.get("task_states", list(_STATES)), place + ("task_states",))
    if not states:
        check.fail(place + ("task_states",), "must name at least one state")
    for number, state in enumerate(states):
        check_state(check, state, place + ("task_states", number))
    answers = read_answers(check, entry.get("answers"), place + ("answers",), WISHES)
    _check_wishes(check, answers)
    return RedfishSettings(
        version=None if version is None else check.text(version, place + ("version",)),
        archive=_read_archive(check, entry.get("archive")),
        task_states=tuple(states),
        answers=answers,
    )


def check_state(check: Checker, state: Any, path: tuple) -> None:
    """Any text is a state; a number and null (no member) are faults that can be asked for."""
    if isinstance(state, (dict, list)):
        check.fail(path, "must be text, a number, true, false or null (leaves TaskState out)")


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
    entry = check.mapping(value, place, ("size", "mini_size", "name", "seed"))

    def whole(name: str, high: int) -> int | None:
        given = entry.get(name)
        return None if given is None else check.whole(given, place + (name,), 0, high)

    name = entry.get("name")
    if name is not None and not _plain(check.text(name, place + ("name",))):
        check.fail(place + ("name",), "must be one plain file name; answers can announce other paths")
    return ArchiveSettings(whole("size", LARGEST), whole("mini_size", LARGEST), name, whole("seed", 2**63))


def _plain(name: str) -> bool:
    return name not in ("", ".", "..") and "/" not in name and "\0" not in name and len(name) <= 200
