# SPDX-License-Identifier: Apache-2.0
"""Another vendor's tree, made from a shape: links and collections follow from the paths."""

from __future__ import annotations

import copy
import datetime
from typing import Any, Callable, Mapping, Sequence
from urllib.parse import parse_qs

from bmc.http.messages import Reply, Request
from bmc.machine import FIXED_TIME, Machine, iso
from bmc.redfish.documents import Document, link, reply_with
from bmc.redfish.errors import RedfishError
from bmc.redfish.registries import log_message
from bmc.redfish.shape_settings import Log, Part, ShapeSettings

_EXPANSIONS = {".": "NoLinks", "*": "ExpandAll"}
_MESSAGES = (*["SensorThresholdOK"] * 3, "SensorThresholdWarning", "SensorThresholdCritical")


class Shape:
    """The resources of a shape, by path, and the pages of its logs."""

    def __init__(self, settings: ShapeSettings, machine: Machine, root: str) -> None:
        self._settings = settings
        self._logs = {log.path: log for log in settings.logs}
        self._words = {
            "serial": machine.serial or "", "uuid": machine.uuid or "", "model": machine.model or "",
            "firmware": machine.firmware or "",
        }
        self.documents: dict[str, Document] = {}
        self.root_members: Document = dict(settings.root)  # those of the service root, links too
        self._root = root
        for part in settings.parts:
            self._make(part)
        for part in settings.parts:
            for path, _ in part.each():
                self._hang(path, part.below)
        for log in settings.logs:
            self._hang(log.path, ())

    @property
    def features(self) -> Document:
        """What the service root says of queries that it takes, beside what it says anyway."""
        return {} if self._settings.expand is None else {"ExpandQuery": dict(self._settings.expand)}

    def _make(self, part: Part) -> None:
        for path, numbers in part.each():
            name = path.rpartition("/")[2]
            document = {
                "@odata.id": path, "@odata.type": f"#{part.type}.{part.type.partition('.')[0]}", "Id": name, "Name": name,
                **self._filled(part.members, numbers),
            }
            self.documents[path] = document

    def _filled(self, value: Any, numbers: Sequence[str]) -> Any:
        """A copy with the numbers of the path, {1} and on, and the machine's words in its texts."""
        if isinstance(value, dict):
            return {name: self._filled(one, numbers) for name, one in value.items()}
        if isinstance(value, list):
            return [self._filled(one, numbers) for one in value]
        if not isinstance(value, str):
            return copy.copy(value)
        for place, number in enumerate(numbers, 1):
            value = value.replace(f"{{{place}}}", number)
        for word, text in self._words.items():
            value = value.replace(f"{{{word}}}", text)
        return value

    def _hang(self, path: str, below: Sequence[str]) -> None:
        """Links a resource into its parent; a parent that nobody has given is a collection."""
        parent, _, name = path.rpartition("/")
        if parent == self._root:
            self.root_members.setdefault(name, link(path))
            return
        if parent not in self.documents:
            type_ = self.documents.get(path, {}).get("@odata.type", "#Resource").partition(".")[0]
            self.documents[parent] = {
                "@odata.id": parent, "@odata.type": f"{type_}Collection.{type_[1:]}Collection",
                "Name": parent.rpartition("/")[2], "Members@odata.count": 0, "Members": [],
            }
            self._hang(parent, ())
        holder = self.documents[parent]
        if "Members" in holder:
            holder["Members"].append(link(path))
            holder["Members@odata.count"] = len(holder["Members"])
            return
        for step in below:
            holder = holder.setdefault(step, {})
        holder.setdefault(name, link(path))

    # --- requests ---------------------------------------------------------------------------

    def takes(self, path: str, part: str) -> bool:
        """Whether a part of a query that begins with "$" can be answered."""
        name, _, value = part.partition("=")
        if name == "$skip":
            return path in self._logs
        feature = _EXPANSIONS.get(value.partition("(")[0])
        return name == "$expand" and feature is not None and bool((self._settings.expand or {}).get(feature))

    def handlers(self, path: str) -> Mapping[str, Callable] | None:
        """GET of a log's entries, or of one of them; None: it is none, or there is nothing else to it."""
        log = self._logs.get(path)
        if log is not None:
            return {"GET": lambda request, _: self._page(log, request)}
        parent, _, name = path.rpartition("/")
        log = self._logs.get(parent)
        if log is not None and name.isdecimal() and 1 <= int(name) <= log.entries:
            return {"GET": lambda *_: reply_with(_entry(log, int(name)))}
        document = self.documents.get(path)
        if document is not None and "Members" in document and self._settings.expand:
            return {"GET": lambda request, _: self._collection(document, request)}
        return None

    def _collection(self, document: Document, request: Request) -> Reply:
        if not _expands(request):
            return reply_with(document)
        members = [self.documents.get(member["@odata.id"], member) for member in document["Members"]]
        return reply_with({**document, "Members": members})

    def _page(self, log: Log, request: Request) -> Reply:
        query = parse_qs(request.query.replace("%24", "$"))
        size = log.page or max(log.entries, 1)
        try:
            first = int(query["$skip"][0]) if "$skip" in query else (int(query.get("page", ["1"])[0]) - 1) * size
        except ValueError:
            raise RedfishError("QueryNotSupported") from None
        start = 0 if log.after == "same" else first
        last = start + size if log.after == "endless" else min(start + size, log.entries)
        numbers = range(start + 1, last + 1)
        whole = log.whole or _expands(request)
        document: Document = {
            "@odata.id": log.path, "@odata.type": "#LogEntryCollection.LogEntryCollection", "Name": "Entries",
            "Members@odata.count": log.entries,
            "Members": [_entry(log, n) if whole else link(f"{log.path}/{n}") for n in numbers],
        }
        if last < log.entries or log.after in ("endless", "same"):
            document["Members@odata.nextLink"] = _next(log, first + size, size, request)
        elif log.after == "circle":
            document["Members@odata.nextLink"] = _next(log, 0, size, request)
        return reply_with(document)


def _expands(request: Request) -> bool:
    return any(part.replace("%24", "$").startswith("$expand=") for part in request.query.split("&"))


def _next(log: Log, skip: int, size: int, request: Request) -> str:
    kept = [part for part in request.query.split("&") if part.replace("%24", "$").startswith("$expand=")]
    place = f"page={skip // size + 1}" if log.next == "page" else f"$skip={skip}"
    path = f"{log.path}?{'&'.join([*kept, place])}"
    return f"https://{request.header('Host')}{path}" if log.next == "address" else path


def _entry(log: Log, number: int) -> Document:
    created = FIXED_TIME + datetime.timedelta(minutes=number)
    return {
        "@odata.id": f"{log.path}/{number}", "@odata.type": "#LogEntry.v1_15_0.LogEntry", "Id": str(number),
        "Name": f"Entry {number}", "EntryType": "Event", "Created": iso(created),
        **log_message(_MESSAGES[number % len(_MESSAGES)], str(number % 40)),
    }
