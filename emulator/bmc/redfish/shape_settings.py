# SPDX-License-Identifier: Apache-2.0
"""The file with another vendor's shape of the tree: systems, chassis, managers, and what hangs below them."""

from __future__ import annotations

import itertools
import re
from dataclasses import dataclass, field
from typing import Any, Iterator, Mapping, Sequence

from bmc.scenario import Checker, parse

PAGES_AFTER_THE_LAST = ("none", "circle", "endless", "same")
NEXT_LINKS = ("skip", "page", "address")
_RANGE = re.compile(r"\{(\d+)\.\.(\d+)\}")
_MANY = 1_000_000


@dataclass(frozen=True)
class Part:
    """A resource, or many that differ by numbers in their paths."""

    path: str
    type: str  # "Drive.v1_17_0"
    members: Mapping[str, Any]
    below: Sequence[str]  # the members of its parent that its link lies in: ["Oem", "Harrow"]

    def each(self) -> Iterator[tuple[str, Sequence[str]]]:
        """The path of each one, and the numbers in it."""
        spans = [range(int(low), int(high) + 1) for low, high in _RANGE.findall(self.path)]
        pattern = _RANGE.sub("{}", self.path)
        for numbers in itertools.product(*spans):
            texts = [str(number) for number in numbers]
            yield pattern.format(*texts), texts


@dataclass(frozen=True)
class Log:
    """The entries of a log service."""

    path: str
    entries: int = 100
    page: int | None = None  # entries of a page; None: all
    whole: bool = True  # entries come with their collection; else links do
    next: str = "skip"  # how the link of the next page looks
    after: str = "none"  # what the last page leads to


@dataclass(frozen=True)
class ShapeSettings:
    """A vendor's shape."""

    root: Mapping[str, Any] = field(default_factory=dict)
    expand: Mapping[str, Any] | None = None  # ProtocolFeaturesSupported.ExpandQuery
    parts: Sequence[Part] = ()
    logs: Sequence[Log] = ()


def read_shape(check: Checker, value: Any) -> ShapeSettings | None:
    """Reads the file that the scenario names; relative names are meant from the scenario."""
    if value is None:
        return None
    file = check.folder / check.text(value, ("redfish", "shape"))
    data, lines = parse(file)
    inner = Checker(file, lines)
    entry = inner.mapping(data, (), ("root", "expand", "resources", "logs"))
    expand = entry.get("expand")
    return ShapeSettings(
        root=inner.mapping(entry.get("root"), ("root",)),
        expand=None if expand is None else inner.mapping(expand, ("expand",)),
        parts=tuple(_part(inner, path, one) for path, one in inner.mapping(entry.get("resources"), ("resources",)).items()),
        logs=tuple(_log(inner, path, one) for path, one in inner.mapping(entry.get("logs"), ("logs",)).items()),
    )


def _path(check: Checker, path: str, place: tuple) -> str:
    if not path.startswith("/redfish/v1/") or path.endswith("/"):
        check.fail(place, "must be a path below /redfish/v1/, without a slash at its end")
    return path


def _part(check: Checker, path: str, value: Any) -> Part:
    place = ("resources", path)
    entry = check.mapping(value, place, ("type", "members", "below"))
    if "type" not in entry:
        check.fail(place, "type is missing")
    below = check.sequence(entry.get("below", []), place + ("below",))
    return Part(
        path=_path(check, path, place),
        type=check.text(entry["type"], place + ("type",)),
        members=check.mapping(entry.get("members"), place + ("members",)),
        below=tuple(check.text(name, place + ("below", n)) for n, name in enumerate(below)),
    )


def _log(check: Checker, path: str, value: Any) -> Log:
    place, usual = ("logs", path), Log("")
    entry = check.mapping(value, place, ("entries", "page", "whole", "next", "after"))
    page = entry.get("page")
    return Log(
        path=_path(check, path, place),
        entries=check.whole(entry.get("entries", usual.entries), place + ("entries",), 0, _MANY),
        page=None if page is None else check.whole(page, place + ("page",), 1, _MANY),
        whole=check.flag(entry.get("whole", usual.whole), place + ("whole",)),
        next=check.choice(entry.get("next", usual.next), place + ("next",), NEXT_LINKS),
        after=check.choice(entry.get("after", usual.after), place + ("after",), PAGES_AFTER_THE_LAST),
    )
