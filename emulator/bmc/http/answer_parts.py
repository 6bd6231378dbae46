# SPDX-License-Identifier: Apache-2.0
"""What scripted answers of all web services have in common: headers, and bodies of no particular kind."""

from __future__ import annotations

from typing import Any, Mapping

from bmc.http.bodies import Body, BytesBody, FileBody, RepeatBody
from bmc.scenario import Checker, MemberPath

BODIES = ("body", "file", "body_repeat", "fill")
LARGEST_BODY = 1 << 40


def read_headers(check: Checker, value: Any, place: MemberPath) -> dict[str, str | None]:
    """Names and values; None takes a header out."""
    headers = check.mapping(value, place)
    for name, text in headers.items():
        if not name.isascii() or not name.replace("-", "").replace("_", "").isalnum():
            check.fail(place + (name,), "is no header name")
        if text is not None and any(ord(c) < 32 and c != "\t" for c in check.text(text, place + (name,))):
            check.fail(place + (name,), "a header's value is one line without control characters")
    return headers


def read_body(check: Checker, entry: Mapping[str, Any], place: MemberPath) -> Body | None:
    """The body that one of BODIES says; None: none of them is there."""
    name = next((name for name in BODIES if name in entry), None)
    return None if name is None else _READERS[name](check, entry[name], place + (name,))


def _read_text(check: Checker, value: Any, place: MemberPath) -> Body:
    return BytesBody(check.text(value, place).encode("utf-8", "surrogatepass"))


def _read_file(check: Checker, value: Any, place: MemberPath) -> Body:
    file = check.folder / check.text(value, place)
    if not file.is_file():
        check.fail(place, f"no such file: {file}")
    return FileBody(file)


def _read_repeat(check: Checker, value: Any, place: MemberPath) -> Body:
    entry = check.mapping(value, place, ("text", "count", "before", "after"))
    for name in ("text", "count"):
        if name not in entry:
            check.fail(place, f"{name} is missing; needed: text, count")
    before, text, after = (
        check.text(entry.get(name, ""), place + (name,)).encode() for name in ("before", "text", "after")
    )
    count = check.whole(entry["count"], place + ("count",), 0, LARGEST_BODY)
    return RepeatBody([(before, 1), (text, count), (after, 1)])


def _read_fill(check: Checker, value: Any, place: MemberPath) -> Body:
    return RepeatBody([(b"x", check.whole(value, place, 0, LARGEST_BODY))])


_READERS = {"body": _read_text, "file": _read_file, "body_repeat": _read_repeat, "fill": _read_fill}
