# SPDX-License-Identifier: Apache-2.0
"""Properties and their values as XML."""

from __future__ import annotations

from dataclasses import dataclass, field
from typing import Any, Mapping, Sequence

from bmc.cim.markup import escaped
from bmc.scenario import Checker, MemberPath

TYPES = (
    "boolean", "uint8", "sint8", "uint16", "sint16", "uint32", "sint32", "uint64", "sint64",
    "real32", "real64", "char16", "string", "datetime",
)
_MEMBERS = ("type", "value", "value_map")


@dataclass(frozen=True)
class Property:
    """A property; its value is text, a list of texts, or None for null."""

    name: str
    type: str
    value: str | Sequence[str] | None = None
    is_array: bool = False
    value_map: Mapping[str, str] = field(default_factory=dict)  # sent as two qualifiers

    def xml(self, origin: str | None = None) -> str:
        """The element, in the layout of a real server: two blanks before TYPE or CLASSORIGIN."""
        tag = "PROPERTY.ARRAY" if self.is_array else "PROPERTY"
        from_ = f' CLASSORIGIN="{origin}"' if origin else ""
        inside = qualifiers_xml(self.value_map) + value_xml(self.value)
        return f'<{tag} NAME="{escaped(self.name)}" {from_} TYPE="{self.type}">\n{inside}</{tag}>\n'


def value_xml(value: str | Sequence[str] | None) -> str:
    if value is None:
        return ""
    if isinstance(value, str):
        return f"<VALUE>{escaped(value)}</VALUE>\n"
    return f"<VALUE.ARRAY>\n{''.join(map(value_xml, value))}</VALUE.ARRAY>\n"


def qualifiers_xml(value_map: Mapping[str, str]) -> str:
    if not value_map:
        return ""
    return "".join(
        f'<QUALIFIER NAME="{name}" TYPE="string">\n{value_xml(list(values))}</QUALIFIER>\n'
        for name, values in (("ValueMap", value_map.keys()), ("Values", value_map.values()))
    )


def read_property(check: Checker, name: str, value: Any, place: MemberPath) -> Property:
    """A property of a scenario: a plain value, or a mapping that also says its type."""
    entry = value if isinstance(value, dict) else {"value": value}
    check.mapping(entry, place, _MEMBERS)
    content = entry.get("value")
    type_ = entry.get("type", _guessed(content))
    check.choice(type_, place + ("type",), TYPES)
    where = place + ("value",) if isinstance(value, dict) else place
    value_map = check.mapping(entry.get("value_map"), place + ("value_map",))
    for key, text in value_map.items():
        check.text(text, place + ("value_map", key))
    return Property(name, type_, _as_text(check, content, where), isinstance(content, list), value_map)


def _guessed(value: Any) -> str:
    sample = value[0] if isinstance(value, list) and value else value
    if isinstance(sample, bool):
        return "boolean"
    if isinstance(sample, int):
        return "uint32" if sample >= 0 else "sint32"
    return "real64" if isinstance(sample, float) else "string"


def _as_text(check: Checker, value: Any, place: MemberPath) -> Any:
    if value is None:
        return None
    if isinstance(value, list):
        return [scalar_text(check, item, place + (n,)) for n, item in enumerate(value)]
    return scalar_text(check, value, place)


def scalar_text(check: Checker, value: Any, place: MemberPath) -> str:
    """A single value in CIM's words. Nothing holds it to its type: wrong ones are tests too."""
    if isinstance(value, bool):
        return "TRUE" if value else "FALSE"
    if isinstance(value, (dict, list)) or value is None:
        check.fail(place, "must be text, a number, true or false")
    return f"{value:.16e}" if isinstance(value, float) else str(value)
