# SPDX-License-Identifier: Apache-2.0
"""Scripted answers: what a scenario puts in place of the BMC's own, or does to them."""

from __future__ import annotations

import re
from dataclasses import dataclass, field
from typing import Any, Mapping, Sequence

from bmc.answer_lists import next_of, read_list
from bmc.cim.markup import DECLARATION
from bmc.cim.values import TYPES, scalar_text
from bmc.http.answer_parts import BODIES, LARGEST_BODY, read_body, read_headers
from bmc.http.bodies import Body, RepeatBody
from bmc.scenario import Checker, MemberPath

_BODIES = (*BODIES, "nested")
_CONTENTS = ("return", "error")
_CHANGES = (
    "message_id", "protocol", "method", "declaration", "entities", "truncate",
    "instances", "properties", "chunked", "chunk_size", "trailer", "content_length",
)
_MANNERS = ("headers", "delay", "hang", "hang_after", "cut_after", "rate", "close", "repeat")
MEMBERS = ("status", *_BODIES, *_CONTENTS, *_CHANGES, *_MANNERS)
_KEY = re.compile(r"\*|\w+( \w+)?")
_MOST = 1000000  # instances or properties that one answer may have
_DEEPEST_ENTITIES = 30


@dataclass(frozen=True)
class Returned:
    """What ExportData is to return; no export is made. `absent`: no RETURNVALUE at all."""

    type: str | None = "uint32"
    value: str | None = None
    absent: bool = False


@dataclass(frozen=True)
class Failing:
    """A CIM status in place of the operation. With `raw` the text is the whole description."""

    code: int
    text: str | None = ""
    raw: bool = False


@dataclass(frozen=True)
class CimAnswer:
    """One scripted answer; {} is the BMC's own."""

    status: int | None = None
    body: Body | None = None
    returned: Returned | None = None
    error: Failing | None = None
    message_id: str | None = None
    protocol: str | None = None
    method: str | None = None
    declaration: bool = True
    entities: int | None = None
    truncate: int | None = None  # bytes of the XML that are kept
    instances: int | None = None  # extra ones
    properties: int | None = None  # extra ones, per instance
    chunked: bool | None = None  # None: as the client wishes
    chunk_size: int | None = None
    trailer: Mapping[str, str | None] = field(default_factory=dict)
    content_length: int | None = None
    headers: Mapping[str, str | None] = field(default_factory=dict)
    delay: float = 0
    hang: bool = False
    hang_after: int | None = None
    cut_after: int | None = None
    rate: int | None = None  # bytes per second
    close: str | None = None  # before, after
    repeat: bool = False

    @property
    def is_own(self) -> bool:
        """Whether the operation is carried out and its answer sent, in whatever manner."""
        return self.status is None and self.body is None


OWN = CimAnswer()


class CimScript:
    """The answers that are left."""

    def __init__(self, answers: Mapping[str, Sequence[CimAnswer]]) -> None:
        self._lists = {key: list(items) for key, items in answers.items()}

    def next(self, method: str, class_name: str) -> CimAnswer:
        """The most exact key goes first; used-up lists are passed over."""
        for key in (f"{method} {class_name}", method, "*"):
            left = self._lists.get(key)
            if left:
                return next_of(left)
        return OWN


def read_answers(check: Checker, value: Any, place: MemberPath) -> dict[str, list[CimAnswer]]:
    """Reads the `answers` member."""
    answers = {}
    for key, entries in check.mapping(value, place).items():
        if not _KEY.fullmatch(key):
            check.fail(place + (key,), 'must read "METHOD", "METHOD CLASS" or "*"')
        answers[key] = read_list(check, entries, place + (key,), lambda item, at: _read_answer(check, item, at))
    return answers


def _read_answer(check: Checker, value: Any, place: MemberPath) -> CimAnswer:
    read = _Members(check, check.mapping(value, place, MEMBERS), place)
    read.forbid_contradictions()
    return CimAnswer(
        status=read.whole("status", 200, 599),
        body=read.body(),
        returned=read.returned(),
        error=read.error(),
        message_id=read.text("message_id"),
        protocol=read.text("protocol"),
        method=read.text("method"),
        declaration=read.flag("declaration", True),
        entities=read.whole("entities", 1, _DEEPEST_ENTITIES),
        truncate=read.whole("truncate", 0, LARGEST_BODY),
        instances=read.whole("instances", 0, _MOST),
        properties=read.whole("properties", 0, _MOST),
        chunked=read.flag("chunked", None),
        chunk_size=read.whole("chunk_size", 1, LARGEST_BODY),
        trailer=read.headers("trailer"),
        content_length=read.whole("content_length", 0, LARGEST_BODY),
        headers=read.headers("headers"),
        delay=read.number("delay", 0, 86400),
        hang=read.flag("hang", False),
        hang_after=read.whole("hang_after", 0, LARGEST_BODY),
        cut_after=read.whole("cut_after", 0, LARGEST_BODY),
        rate=read.whole("rate", 1, LARGEST_BODY),
        close=read.choice("close", ("before", "after")),
        repeat=read.flag("repeat", False),
    )


class _Members:
    """The members of one answer, each read as what it is."""

    def __init__(self, check: Checker, entry: Mapping[str, Any], place: MemberPath) -> None:
        self._check = check
        self._entry = entry
        self._place = place

    def forbid_contradictions(self) -> None:
        given = [name for name in MEMBERS if name in self._entry]
        replacing = [name for name in given if name in ("status", *_BODIES)]
        if len([name for name in replacing if name != "status"]) > 1:
            self._fail(replacing[-1], f"there is a body already: {replacing[-2]}")
        for name in given:
            if replacing and name in (*_CONTENTS, *_CHANGES) and name != "content_length":
                self._fail(name, f"changes the BMC's own answer, which {replacing[0]} replaces")
        if "return" in given and "error" in given:
            self._fail("error", "return says already how the operation ends")
        self._forbid_silence(given)

    def _forbid_silence(self, given: Sequence[str]) -> None:
        silent = "hang" if self._entry.get("hang") else None
        silent = "close" if self._entry.get("close") == "before" else silent
        for name in given:
            if silent and name not in (silent, "delay", "repeat"):
                self._fail(name, f"{silent} sends no answer")
        if "cut_after" in given and "hang_after" in given:
            self._fail("hang_after", "cut_after ends the answer already")

    def _fail(self, name: str, what: str) -> None:
        self._check.fail(self._place + (name,), what)

    def whole(self, name: str, low: int, high: int) -> int | None:
        if name not in self._entry:
            return None
        return self._check.whole(self._entry[name], self._place + (name,), low, high)

    def number(self, name: str, low: float, high: float) -> float:
        return self._check.number(self._entry.get(name, 0), self._place + (name,), low, high)

    def text(self, name: str) -> str | None:
        if name not in self._entry:
            return None
        return self._check.text(self._entry[name], self._place + (name,))

    def flag(self, name: str, default: Any) -> Any:
        if name not in self._entry:
            return default
        return self._check.flag(self._entry[name], self._place + (name,))

    def choice(self, name: str, allowed: Sequence[str]) -> str | None:
        if name not in self._entry:
            return None
        return self._check.choice(self._entry[name], self._place + (name,), allowed)

    def headers(self, name: str) -> dict[str, str | None]:
        return read_headers(self._check, self._entry.get(name), self._place + (name,))

    def returned(self) -> Returned | None:
        """`return: 3`, `return: absent`, `return: {type: uint16, value: 0}`."""
        if "return" not in self._entry:
            return None
        value, place = self._entry["return"], self._place + ("return",)
        if value == "absent":
            return Returned(absent=True)
        if not isinstance(value, dict):
            return Returned("uint32", str(self._check.whole(value, place, 0, 2**32 - 1)))
        entry = self._check.mapping(value, place, ("type", "value"))
        type_ = entry.get("type")
        if type_ is not None:
            self._check.choice(type_, place + ("type",), TYPES)
        content = entry.get("value")
        text = None if content is None else scalar_text(self._check, content, place + ("value",))
        return Returned(type_, text)

    def error(self) -> Failing | None:
        """`error: 1`, `error: {code: 1, text: disk full}`, `error: {code: 1, description: ...}`."""
        if "error" not in self._entry:
            return None
        value, place = self._entry["error"], self._place + ("error",)
        entry = value if isinstance(value, dict) else {"code": value}
        self._check.mapping(entry, place, ("code", "text", "description"))
        code = self._check.whole(entry.get("code"), place + ("code",), 0, 2**32 - 1)
        if "description" not in entry:
            return Failing(code, self._check.text(entry.get("text", ""), place + ("text",)))
        if "text" in entry:
            self._check.fail(place + ("text",), "description says the whole text already")
        text = entry["description"]
        if text is not None:
            self._check.text(text, place + ("description",))
        return Failing(code, text, raw=True)

    def body(self) -> Body | None:
        if "nested" in self._entry:
            return self._nested(self._entry["nested"], self._place + ("nested",))
        return read_body(self._check, self._entry, self._place)

    def _nested(self, value: Any, place: MemberPath) -> Body:
        """That many levels of elements; all of them closed again unless told otherwise."""
        entry = value if isinstance(value, dict) else {"depth": value}
        self._check.mapping(entry, place, ("depth", "closed"))
        depth = self._check.whole(entry.get("depth"), place + ("depth",), 0, LARGEST_BODY)
        closed = self._check.flag(entry.get("closed", True), place + ("closed",))
        start = (DECLARATION + '<CIM CIMVERSION="2.0" DTDVERSION="2.0">').encode()
        end = [(b"</CIM>\n", 1)] if closed else []
        return RepeatBody([(start, 1), (b"<A>", depth), (b"</A>", depth if closed else 0), *end])
