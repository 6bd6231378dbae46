# SPDX-License-Identifier: Apache-2.0
"""Scripted answers: what a scenario puts before a service's own behaviour."""

from __future__ import annotations

import fnmatch
import json
from dataclasses import dataclass, field
from typing import Any, Mapping, Sequence
from urllib.parse import unquote

from bmc.answer_lists import next_of, read_list
from bmc.http.answer_parts import LARGEST_BODY, read_body, read_headers
from bmc.http.bodies import Body, BytesBody, RepeatBody
from bmc.scenario import Checker, MemberPath

METHODS = ("GET", "HEAD", "POST", "PUT", "PATCH", "DELETE", "OPTIONS", "M-POST", "*")
_BODY_MEMBERS = ("body", "json", "file", "body_repeat", "nested", "fill")
MEMBERS = (
    "status", *_BODY_MEMBERS, "headers", "redirect",
    "delay", "hang", "hang_after", "cut_after", "rate", "repeat",
)
_LONGEST_DELAY = 86400


@dataclass(frozen=True)
class Answer:
    """One scripted answer. Without status and body it is the service's own, sent in this manner."""

    status: int | None = None
    body: Body | None = None
    content_type: str = "application/json"
    headers: Mapping[str, str | None] = field(default_factory=dict)
    delay: float = 0
    hang: bool = False
    hang_after: int | None = None
    cut_after: int | None = None
    rate: int | None = None
    repeat: bool = False
    wishes: Mapping[str, Any] = field(default_factory=dict)

    @property
    def is_own(self) -> bool:
        """Whether the service itself says what is answered."""
        return self.status is None and self.body is None


OWN = Answer()


class Script:
    """The answers that are left, per resource."""

    def __init__(self, answers: Mapping[str, Sequence[Answer]]) -> None:
        self._lists = [(key.split(" ", 1), list(answers_)) for key, answers_ in answers.items()]

    def next(self, method: str, path: str) -> Answer:
        """The answer for a request: exact paths go before patterns, used-up lists are passed over."""
        for matches in (_is_path, _fits_pattern):
            for (wanted, pattern), answers in self._lists:
                if answers and wanted in (method, "*") and matches(path, pattern):
                    return next_of(answers)
        return OWN


def _is_path(path: str, wanted: str) -> bool:
    return wanted in (path, unquote(path))


def _fits_pattern(path: str, pattern: str) -> bool:
    return fnmatch.fnmatchcase(path, pattern.replace("...", "*"))


def read_answers(
    check: Checker, value: Any, path: MemberPath, wishes: Sequence[str] = ()
) -> dict[str, list[Answer]]:
    """Reads the `answers` member; `wishes` names members that only the service understands."""
    answers = {}
    for key, entries in check.mapping(value, path).items():
        place = path + (key,)
        method, _, pattern = key.partition(" ")
        if method not in METHODS or not pattern.startswith(("/", "*", "...")):
            check.fail(place, f'must read "METHOD /path"; methods: {", ".join(METHODS)}')
        answers[key] = read_list(
            check, entries, place, lambda item, at: _read_answer(check, item, at, wishes))
    return answers


def _read_answer(check: Checker, value: Any, path: MemberPath, wishes: Sequence[str]) -> Answer:
    entry = check.mapping(value, path, (*MEMBERS, *wishes))
    _forbid_contradictions(check, entry, path, wishes)
    redirect = entry.get("redirect")
    headers = read_headers(check, entry.get("headers"), path + ("headers",))
    if redirect is not None:
        headers = {"Location": check.text(redirect, path + ("redirect",)), **headers}
    limit = {"low": 0, "high": LARGEST_BODY}
    return Answer(
        status=_status(check, entry, path),
        body=_read_body(check, entry, path),
        content_type=_content_type(entry),
        headers=headers,
        delay=check.number(entry.get("delay", 0), path + ("delay",), 0, _LONGEST_DELAY),
        hang=check.flag(entry.get("hang", False), path + ("hang",)),
        hang_after=_optional(check.whole, entry, path, "hang_after", **limit),
        cut_after=_optional(check.whole, entry, path, "cut_after", **limit),
        rate=_optional(check.whole, entry, path, "rate", low=1, high=LARGEST_BODY),
        repeat=check.flag(entry.get("repeat", False), path + ("repeat",)),
        wishes={name: entry[name] for name in wishes if name in entry},
    )


def _forbid_contradictions(
    check: Checker, entry: Mapping[str, Any], path: MemberPath, wishes: Sequence[str]
) -> None:
    bodies = [name for name in _BODY_MEMBERS if name in entry]
    if len(bodies) > 1:
        check.fail(path + (bodies[1],), f"there is a body already: {bodies[0]}")
    replaced = [name for name in ("status", "redirect", *bodies) if name in entry]
    for name in wishes:
        if name in entry and replaced:
            what = f"changes the service's own answer, which {replaced[0]} replaces"
            check.fail(path + (name,), what)
    if entry.get("hang"):
        for name in ("hang_after", "cut_after", *replaced):
            if name in entry:
                check.fail(path + (name,), "hang never answers, so nothing else is sent")
    if "cut_after" in entry and "hang_after" in entry:
        check.fail(path + ("hang_after",), "cut_after ends the answer already")


def _status(check: Checker, entry: Mapping[str, Any], path: MemberPath) -> int | None:
    if "status" in entry:
        return check.whole(entry["status"], path + ("status",), 200, 599)
    return 302 if entry.get("redirect") is not None else None


def _optional(reader: Any, entry: Mapping[str, Any], path: MemberPath, name: str, **limits: int) -> Any:
    return reader(entry[name], path + (name,), **limits) if name in entry else None


def _read_body(check: Checker, entry: Mapping[str, Any], path: MemberPath) -> Body | None:
    if "json" in entry:
        return BytesBody(json.dumps(entry["json"], default=str).encode())
    if "nested" in entry:
        return _read_nested(check, entry["nested"], path + ("nested",))
    return read_body(check, entry, path)


def _read_nested(check: Checker, value: Any, path: MemberPath) -> RepeatBody:
    if not isinstance(value, dict):
        return RepeatBody([(b"[", check.whole(value, path, 0, LARGEST_BODY))])
    entry = check.mapping(value, path, ("depth", "closed"))
    depth = check.whole(entry.get("depth"), path + ("depth",), 0, LARGEST_BODY)
    closed = check.flag(entry.get("closed", False), path + ("closed",))
    return RepeatBody([(b"[", depth), (b"]", depth if closed else 0)])


def _content_type(entry: Mapping[str, Any]) -> str:
    if "file" in entry and not str(entry["file"]).endswith(".json"):
        return "application/octet-stream"
    return "application/json"
