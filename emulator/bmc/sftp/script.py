# SPDX-License-Identifier: Apache-2.0
"""Scripted answers of the file service: to logins, listings and the opening of files."""

from __future__ import annotations

import fnmatch
from dataclasses import dataclass
from typing import Any, Mapping, Sequence

from bmc.answer_lists import next_of, read_list
from bmc.scenario import Checker, MemberPath

LOGIN, LIST, OPEN = "login", "list", "open"
# The numbers of SFTP's status answer, version 3 (draft-ietf-secsh-filexfer-02, section 7).
ERRORS = {"no such file": 2, "permission denied": 3, "failure": 4, "operation unsupported": 8}

_EVERYWHERE = ("delay", "hang", "cut", "repeat")
_MEMBERS = {
    LOGIN: ("refuse", *_EVERYWHERE),
    LIST: ("error", *_EVERYWHERE),
    OPEN: ("error", "cut_after", "hang_after", "rate", *_EVERYWHERE),
}
_LARGEST = 1 << 40
_LONGEST_DELAY = 86400


@dataclass(frozen=True)
class SftpAnswer:
    """One scripted answer. Without error and refusal it is the service's own, in this manner."""

    error: str | None = None
    refuse: bool = False
    delay: float = 0
    hang: bool = False
    cut: bool = False  # the connection, instead of an answer
    cut_after: int | None = None  # bytes of the file
    hang_after: int | None = None
    rate: int | None = None  # bytes per second
    repeat: bool = False


OWN = SftpAnswer()


class Script:
    """The answers that are left, per operation."""

    def __init__(self, answers: Mapping[str, Sequence[SftpAnswer]]) -> None:
        self._lists = [(key.partition(" "), list(left)) for key, left in answers.items()]

    def next(self, operation: str, path: str = "") -> SftpAnswer:
        """Exact paths go before patterns, patterns before no path; used-up lists are passed over."""
        for fits in (str.__eq__, fnmatch.fnmatchcase, _is_any):
            for (wanted, _, pattern), left in self._lists:
                if left and wanted == operation and fits(path, pattern):
                    return next_of(left)
        return OWN


def _is_any(_path: str, pattern: str) -> bool:
    return not pattern


def read_answers(
    check: Checker, value: Any, place: MemberPath
) -> dict[str, Sequence[SftpAnswer]]:
    """Reads the `answers` member."""
    answers: dict[str, Sequence[SftpAnswer]] = {}
    for key, entries in check.mapping(value, place).items():
        here = place + (key,)
        operation, _, path = key.partition(" ")
        if operation not in _MEMBERS or (operation == LOGIN and path):
            check.fail(here, 'must read "login", "list", "open", "list /folder/" or "open /folder/file"')
        answers[key] = read_list(
            check, entries, here, lambda item, at: _read_answer(check, item, at, operation))
    return answers


def _read_answer(check: Checker, value: Any, place: MemberPath, operation: str) -> SftpAnswer:
    entry = check.mapping(value, place, _MEMBERS[operation])
    _forbid_contradictions(check, entry, place)

    def optional(reader: Any, name: str, *limits: Any) -> Any:
        return reader(entry[name], place + (name,), *limits) if name in entry else None

    return SftpAnswer(
        error=optional(check.choice, "error", tuple(ERRORS)),
        refuse=bool(optional(check.flag, "refuse")),
        delay=optional(check.number, "delay", 0, _LONGEST_DELAY) or 0,
        hang=bool(optional(check.flag, "hang")),
        cut=bool(optional(check.flag, "cut")),
        cut_after=optional(check.whole, "cut_after", 0, _LARGEST),
        hang_after=optional(check.whole, "hang_after", 0, _LARGEST),
        rate=optional(check.whole, "rate", 1, _LARGEST),
        repeat=bool(optional(check.flag, "repeat")),
    )


def _forbid_contradictions(check: Checker, entry: Mapping[str, Any], place: MemberPath) -> None:
    ends = [name for name in ("error", "refuse", "hang", "cut") if entry.get(name)]
    later = [name for name in ("cut_after", "hang_after", "rate") if name in entry]
    for name in (ends[1:] + later) if ends else ():
        check.fail(place + (name,), f"{ends[0]} is the whole answer")
    if "cut_after" in entry and "hang_after" in entry:
        check.fail(place + ("hang_after",), "cut_after ends the file already")
