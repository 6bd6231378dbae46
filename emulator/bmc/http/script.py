# SPDX-License-Identifier: Apache-2.0
"""Scripted answers: what a scenario puts before a service's own behaviour."""

from __future__ import annotations

import fnmatch
import json
from dataclasses import dataclass, field
from typing import Any, Mapping, Sequence
from urllib.parse import unquote

from bmc.http.bodies import Body, BytesBody, FileBody, RepeatBody
from bmc.scenario import Checker, MemberPath

METHODS = ("GET", "HEAD", "POST", "PUT", "PATCH", "DELETE", "OPTIONS", "M-POST", "*")
_BODY_MEMBERS = ("body", "json", "file", "body_repeat", "nested", "fill")
MEMBERS = (
    "status", *_BODY_MEMBERS, "headers", "redirect",
    "delay", "hang", "hang_after", "cut_after", "rate", "repeat",
)
_LARGEST_BODY = 1 << 40
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
                    return answers[0] if _stays(answers) else answers.pop(0)
        return OWN


def _stays(answers: list[Answer]) -> bool:
    return len(answers) == 1 and answers[0].repeat


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
        if isinstance(entries, dict):
            entries = [entries]
        items = check.sequence(entries, place)
        answers[key] = [
            _read_answer(check, item, place + (n,), wishes) for n, item in enumerate(items)
        ]
        for n, answer in enumerate(answers[key][:-1]):
            if answer.repeat:
                check.fail(place + (n, "repeat"), "only the last answer of a list can repeat")
    return answers


def _read_answer(check: Checker, value: Any, path: MemberPath, wishes: Sequence[str]) -> Answer:
    if not isinstance(value, dict):
        check.fail(path, "must be a mapping; {} is the service's own answer")
    entry = check.mapping(value, path, (*MEMBERS, *wishes))
    _forbid_contradictions(check, entry, path, wishes)
    redirect = entry.get("redirect")
    headers = _read_headers(check, entry.get("headers"), path + ("headers",))
    if redirect is not None:
        headers = {"Location": check.text(redirect, path + ("redirect",)), **headers}
    limit = {"low": 0, "high": _LARGEST_BODY}
    return Answer(
        status=_status(check, entry, path),
        body=_read_body(check, entry, path),
        content_type=_content_type(entry),
        headers=headers,
        delay=check.number(entry.get("delay", 0), path + ("delay",), 0, _LONGEST_DELAY),
        hang=check.flag(entry.get("hang", False), path + ("hang",)),
        hang_after=_optional(check.whole, entry, path, "hang_after", **limit),
        cut_after=_optional(check.whole, entry, path, "cut_after", **limit),
        rate=_optional(check.whole, entry, path, "rate", low=1, high=_LARGEST_BODY),
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


def _read_headers(check: Checker, value: Any, path: MemberPath) -> dict[str, str | None]:
    headers = check.mapping(value, path)
    for name, text in headers.items():
        if not name.isascii() or not name.replace("-", "").replace("_", "").isalnum():
            check.fail(path + (name,), "is no header name")
        if text is None:
            continue
        if any(ord(c) < 32 and c != "\t" for c in check.text(text, path + (name,))):
            check.fail(path + (name,), "a header's value is one line without control characters")
    return headers


def _read_body(check: Checker, entry: Mapping[str, Any], path: MemberPath) -> Body | None:
    if "body" in entry:
        return BytesBody(check.text(entry["body"], path + ("body",)).encode("utf-8", "surrogatepass"))
    if "json" in entry:
        return BytesBody(json.dumps(entry["json"], default=str).encode())
    if "file" in entry:
        return _read_file(check, entry["file"], path + ("file",))
    if "body_repeat" in entry:
        return _read_repeat(check, entry["body_repeat"], path + ("body_repeat",))
    if "nested" in entry:
        return _read_nested(check, entry["nested"], path + ("nested",))
    if "fill" in entry:
        return RepeatBody([(b"x", check.whole(entry["fill"], path + ("fill",), 0, _LARGEST_BODY))])
    return None


def _read_file(check: Checker, value: Any, path: MemberPath) -> FileBody:
    file = check.folder / check.text(value, path)
    if not file.is_file():
        check.fail(path, f"no such file: {file}")
    return FileBody(file)


def _read_repeat(check: Checker, value: Any, path: MemberPath) -> RepeatBody:
    entry = check.mapping(value, path, ("text", "count", "before", "after"))
    for name in ("text", "count"):
        if name not in entry:
            check.fail(path, f"{name} is missing; needed: text, count")
    before, text, after = (
        check.text(entry.get(name, ""), path + (name,)).encode() for name in ("before", "text", "after")
    )
    count = check.whole(entry["count"], path + ("count",), 0, _LARGEST_BODY)
    return RepeatBody([(before, 1), (text, count), (after, 1)])


def _read_nested(check: Checker, value: Any, path: MemberPath) -> RepeatBody:
    if not isinstance(value, dict):
        return RepeatBody([(b"[", check.whole(value, path, 0, _LARGEST_BODY))])
    entry = check.mapping(value, path, ("depth", "closed"))
    depth = check.whole(entry.get("depth"), path + ("depth",), 0, _LARGEST_BODY)
    closed = check.flag(entry.get("closed", False), path + ("closed",))
    return RepeatBody([(b"[", depth), (b"]", depth if closed else 0)])


def _content_type(entry: Mapping[str, Any]) -> str:
    if "file" in entry and not str(entry["file"]).endswith(".json"):
        return "application/octet-stream"
    return "application/json"
