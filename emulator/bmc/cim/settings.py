# SPDX-License-Identifier: Apache-2.0
"""The `cim` section of a scenario."""

from __future__ import annotations

import re
from dataclasses import dataclass, field
from typing import Any, Mapping, Sequence

from bmc.archive import LARGEST
from bmc.cim.answers import CimAnswer, read_answers
from bmc.cim.values import Property, read_property
from bmc.scenario import Checker, MemberPath

MEMBERS = (
    "namespaces", "interop", "services", "system_name", "data", "authentication", "challenge",
    "export", "archive", "answers",
)
_OBJECT_MEMBERS = ("type", "id", "properties", "without")
_EXPORT_MEMBERS = ("upload", "check", "seconds")
_NAMESPACES = ("root/cimv2", *(f"zor/kem{node}/cimv2" for node in range(1, 5)))
_INTEROP = "interop"
_NAMESPACE = re.compile(r"[A-Za-z_][\w-]*(/[A-Za-z_][\w-]*)*")
_MANY = 100000


@dataclass(frozen=True)
class DataObject:
    """One ZOR_FFDCData object of the BMC."""

    id: str
    type: str  # DataCollectionType as text, for names; empty where it has none
    properties: Sequence[Property]  # in place of, or after, those of the class
    without: Sequence[str] = ()  # properties that it lacks


@dataclass(frozen=True)
class CimSettings:
    """What the CIM object manager is to be."""

    namespaces: Sequence[str] = _NAMESPACES
    interop: str | None = _INTEROP  # the namespace that tells of the others; None: there is none
    services: int = 1
    system_name: str = "kem"
    data: Sequence[DataObject] = ()
    authentication: bool = True
    challenge: str | None = 'Basic realm="{host}"'  # None: a 401 without one
    upload: bool = True
    check: bool = True
    seconds: float = 0  # that an export takes before its upload
    archive_size: int | None = None
    answers: Mapping[str, Sequence[CimAnswer]] = field(default_factory=dict)


def read_cim(check: Checker, value: Any) -> CimSettings:
    """Reads and checks the section."""
    place = ("cim",)
    entry = check.mapping(value, place, MEMBERS)
    export = check.mapping(entry.get("export"), place + ("export",), _EXPORT_MEMBERS)
    archive = check.mapping(entry.get("archive"), place + ("archive",), ("size",))
    size = archive.get("size")
    return CimSettings(
        namespaces=_read_namespaces(check, entry, place + ("namespaces",)),
        interop=_read_interop(check, entry.get("interop", _INTEROP), place + ("interop",)),
        services=check.whole(entry.get("services", 1), place + ("services",), 0, _MANY),
        system_name=check.text(entry.get("system_name", "kem"), place + ("system_name",)),
        data=_read_data(check, entry.get("data", [1, 2, 4]), place + ("data",)),
        authentication=check.flag(entry.get("authentication", True), place + ("authentication",)),
        challenge=_read_challenge(check, entry, place + ("challenge",)),
        upload=check.flag(export.get("upload", True), place + ("export", "upload")),
        check=check.flag(export.get("check", True), place + ("export", "check")),
        seconds=check.number(export.get("seconds", 0), place + ("export", "seconds"), 0, 86400),
        archive_size=(
            None if size is None else check.whole(size, place + ("archive", "size"), 0, LARGEST)
        ),
        answers=read_answers(check, entry.get("answers"), place + ("answers",)),
    )


def _read_namespaces(check: Checker, entry: Mapping[str, Any], place: MemberPath) -> Sequence[str]:
    names = check.sequence(entry.get("namespaces", list(_NAMESPACES)), place)
    return tuple(_namespace(check, name, place + (number,)) for number, name in enumerate(names))


def _read_interop(check: Checker, value: Any, place: MemberPath) -> str | None:
    return None if value is None else _namespace(check, value, place)


def _namespace(check: Checker, value: Any, place: MemberPath) -> str:
    if not _NAMESPACE.fullmatch(check.text(value, place)):
        check.fail(place, 'must be names with "/" between them')
    return value


def _read_challenge(check: Checker, entry: Mapping[str, Any], place: MemberPath) -> str | None:
    if "challenge" not in entry:
        return CimSettings.challenge
    text = entry["challenge"]
    if text is not None and any(ord(c) < 32 for c in check.text(text, place)):
        check.fail(place, "a header's value is one line without control characters")
    return text


def _read_data(check: Checker, value: Any, place: MemberPath) -> Sequence[DataObject]:
    objects = [
        _read_object(check, item, place + (number,), number + 1)
        for number, item in enumerate(check.sequence(value, place))
    ]
    seen: set[str] = set()
    for number, item in enumerate(objects):
        if item.id in seen:
            check.fail(place + (number,), f"a second object with the key {item.id!r}")
        seen.add(item.id)
    return tuple(objects)


def _read_object(check: Checker, value: Any, place: MemberPath, number: int) -> DataObject:
    entry = value if isinstance(value, dict) else {"type": value}
    check.mapping(entry, place, _OBJECT_MEMBERS)
    type_ = entry.get("type", 1)
    where = place + ("type",) if isinstance(value, dict) else place
    properties = [_data_collection_type(check, type_, where)]
    for name, item in check.mapping(entry.get("properties"), place + ("properties",)).items():
        properties.append(read_property(check, name, item, place + ("properties", name)))
    text = "" if type_ is None else str(type_)
    return DataObject(
        id=check.text(entry.get("id", f"ZOR:FFDC:{number}:{text}"), place + ("id",)),
        type=text.strip(),
        properties=tuple(properties),
        without=_read_names(check, entry.get("without", []), place + ("without",)),
    )


def _data_collection_type(check: Checker, value: Any, place: MemberPath) -> Property:
    """A number has the class's type, a text is one, null has no value."""
    if isinstance(value, str):
        return Property("DataCollectionType", "string", value)
    text = None if value is None else str(check.whole(value, place, 0, 65535))
    return Property("DataCollectionType", "uint16", text)


def _read_names(check: Checker, value: Any, place: MemberPath) -> Sequence[str]:
    names = check.sequence(value, place)
    return tuple(check.text(name, place + (n,)) for n, name in enumerate(names))
