# SPDX-License-Identifier: Apache-2.0
"""The `redfish.diagnostics` section of a scenario: log services with LogService.CollectDiagnosticData."""

from __future__ import annotations

from dataclasses import dataclass, field
from typing import Any, Mapping, Sequence

from bmc.scenario import Checker

BELOW = ("Managers", "Systems", "Chassis")
ANSWERS = ("monitor", "task", "both", "entry", "created", "none")
RESULTS = ("entry", "created", "none", "task")
NAMED_BY = ("created-resources", "header", "message", "nothing")
KINDS = ("tar.gz", "zip", "tar.xz", "bin", "text", "empty")
_PLACE = ("redfish", "diagnostics")
_LONGEST = 86400  # seconds
_MANY = 100000


@dataclass(frozen=True)
class LogServiceSettings:
    """One log service that offers the action."""

    below: str = "Managers"
    id: str = "Dump"
    types: Sequence[str] | None = ("Manager",)  # None: the action tells no allowable values
    oem_types: Sequence[str] = ()
    action_info: bool = False  # the values stand in @Redfish.ActionInfo alone
    entries: int = 0  # that are there from the start
    page: int | None = None  # members of a page; None: all on one
    endless: bool = False  # the last page leads to the first

    @property
    def path(self) -> str:
        return f"/redfish/v1/{self.below}/1/LogServices/{self.id}"


@dataclass(frozen=True)
class DataSettings:
    """What an entry's AdditionalDataURI leads to."""

    kind: str = "tar.gz"
    size: int = 20000  # about, before it is packed
    content_type: str = "application/octet-stream"
    name: str | None = None  # of the file, in Content-Disposition; None: it is not told
    digest: bool = False  # the answer tells the SHA-256 (RFC 9530)
    query: str = ""  # the address has this one, and leads nowhere without it


@dataclass(frozen=True)
class DiagnosticSettings:
    """How the action behaves. Without services there is none."""

    services: Sequence[LogServiceSettings] = ()
    answer: str = "both"  # 202 with a monitor, a task or both, or the end at once
    result: str = "entry"  # of the task's monitor, at its end
    named_by: str = "created-resources"  # where a completed task names its entry
    appears_after: float = 0  # seconds from the end until the entry stands in the log
    retry_after: int | str = 1  # of a 202, and where it is busy
    entry: Mapping[str, Any] = field(default_factory=dict)  # members changed; None: taken out
    data: DataSettings = DataSettings()


def read_diagnostics(check: Checker, value: Any) -> DiagnosticSettings:
    entry, usual = check.mapping(value, _PLACE, tuple(DiagnosticSettings.__annotations__)), DiagnosticSettings()
    services = check.sequence(entry.get("services", []), _PLACE + ("services",))
    choices = {
        name: check.choice(entry.get(name, getattr(usual, name)), _PLACE + (name,), allowed)
        for name, allowed in (("answer", ANSWERS), ("result", RESULTS), ("named_by", NAMED_BY))
    }
    retry = entry.get("retry_after", usual.retry_after)
    if not isinstance(retry, str):
        retry = check.whole(retry, _PLACE + ("retry_after",), 0, _LONGEST)
    return DiagnosticSettings(
        services=tuple(_read_service(check, one, number) for number, one in enumerate(services)),
        appears_after=check.number(
            entry.get("appears_after", usual.appears_after), _PLACE + ("appears_after",), 0, _LONGEST),
        retry_after=retry,
        entry=check.mapping(entry.get("entry"), _PLACE + ("entry",)),
        data=_read_data(check, entry.get("data")),
        **choices,
    )


def _read_service(check: Checker, value: Any, number: int) -> LogServiceSettings:
    place, usual = _PLACE + ("services", number), LogServiceSettings()
    entry = check.mapping(value, place, tuple(LogServiceSettings.__annotations__))
    types, page = entry.get("types", usual.types), entry.get("page")
    return LogServiceSettings(
        below=check.choice(entry.get("below", usual.below), place + ("below",), BELOW),
        id=check.text(entry.get("id", usual.id), place + ("id",)),
        types=None if types is None else _texts(check, list(types), place + ("types",)),
        oem_types=_texts(check, entry.get("oem_types", []), place + ("oem_types",)),
        action_info=check.flag(entry.get("action_info", False), place + ("action_info",)),
        entries=check.whole(entry.get("entries", 0), place + ("entries",), 0, _MANY),
        page=None if page is None else check.whole(page, place + ("page",), 1, _MANY),
        endless=check.flag(entry.get("endless", False), place + ("endless",)),
    )


def _read_data(check: Checker, value: Any) -> DataSettings:
    place, usual = _PLACE + ("data",), DataSettings()
    entry = check.mapping(value, place, tuple(DataSettings.__annotations__))
    name = entry.get("name")
    return DataSettings(
        kind=check.choice(entry.get("kind", usual.kind), place + ("kind",), KINDS),
        size=check.whole(entry.get("size", usual.size), place + ("size",), 0, 1 << 30),
        content_type=check.text(entry.get("content_type", usual.content_type), place + ("content_type",)),
        name=None if name is None else check.text(name, place + ("name",)),
        digest=check.flag(entry.get("digest", usual.digest), place + ("digest",)),
        query=check.text(entry["query"], place + ("query",)) if "query" in entry else "",
    )


def _texts(check: Checker, value: Any, place: tuple) -> Sequence[str]:
    return tuple(check.text(one, place + (n,)) for n, one in enumerate(check.sequence(value, place)))
