# SPDX-License-Identifier: Apache-2.0
"""Object paths: as XML, as text, and as they stand percent-encoded in a header."""

from __future__ import annotations

import re
from dataclasses import dataclass, field
from typing import Mapping
from urllib.parse import quote, unquote

from bmc.cim.markup import Element, escaped

_UNRESERVED = "-_.!~*'()"
_KEY = re.compile(r'(\w+)=(?:"((?:[^"\\]|\\.)*)"|([^,"]+))(?:,|$)', re.DOTALL)


@dataclass(frozen=True)
class Key:
    """A key's value as text, and whether it is string, numeric or boolean."""

    value: str
    kind: str = "string"


@dataclass(frozen=True)
class ObjectPath:
    """Names one object, or a class where there are no keys. None: the namespace goes unsaid."""

    class_name: str
    keys: Mapping[str, Key] = field(default_factory=dict)
    namespace: str | None = None

    def __str__(self) -> str:
        """namespace:Class.key="value", keys in alphabetical order."""
        keys = ",".join(f"{name}={_quoted(self.keys[name])}" for name in sorted(self.keys, key=str.lower))
        start = f"{self.namespace}:" if self.namespace else ""
        return start + self.class_name + (f".{keys}" if keys else "")

    @property
    def identity(self) -> tuple:
        """What two paths to one object have in common, namespaces aside."""
        keys = frozenset((name.lower(), key.value) for name, key in self.keys.items())
        return self.class_name.lower(), keys

    def xml(self) -> str:
        """The INSTANCENAME element."""
        bindings = "".join(
            f'<KEYBINDING NAME="{name}">\n<KEYVALUE VALUETYPE="{key.kind}">{escaped(key.value)}</KEYVALUE>\n'
            "</KEYBINDING>\n"
            for name, key in sorted(self.keys.items(), key=lambda item: item[0].lower())
        )
        return f'<INSTANCENAME CLASSNAME="{self.class_name}">\n{bindings}</INSTANCENAME>\n'


def read_path(element: Element) -> ObjectPath:
    """INSTANCENAME, LOCALINSTANCEPATH, INSTANCEPATH or one of their class forms."""
    if element.name == "INSTANCENAME":
        return ObjectPath(element.attribute("CLASSNAME"), _read_keys(element))
    if element.name == "CLASSNAME":
        return ObjectPath(element.attribute("NAME"))
    if element.name not in ("LOCALINSTANCEPATH", "INSTANCEPATH", "LOCALCLASSPATH", "CLASSPATH"):
        element.refuse("Expected an object path")
    if len(element.children) != 2:
        element.refuse(f"Expected two elements in {element.name}")
    space, name = element.children
    inner = read_path(name)
    return ObjectPath(inner.class_name, inner.keys, read_namespace(space))


def read_namespace(element: Element) -> str:
    """LOCALNAMESPACEPATH, or NAMESPACEPATH whose host is of no interest."""
    if element.name == "NAMESPACEPATH":
        if len(element.children) != 2 or element.children[0].name != "HOST":
            element.refuse("Expected HOST element")
        element = element.children[1]
    if element.name != "LOCALNAMESPACEPATH" or not element.children:
        element.refuse("Expected LOCALNAMESPACEPATH element")
    for child in element.children:
        if child.name != "NAMESPACE":
            child.refuse("Expected NAMESPACE element")
    return "/".join(child.attribute("NAME") for child in element.children)


def _read_keys(element: Element) -> dict[str, Key]:
    keys = {}
    for binding in element.children:
        if binding.name == "KEYVALUE":  # one key may go without its name
            keys[""] = Key(binding.text, binding.attributes.get("VALUETYPE", "string"))
            continue
        if binding.name != "KEYBINDING":
            binding.refuse("Expected KEYBINDING element")
        value = binding.child("KEYVALUE", "VALUE.REFERENCE")
        if value.name == "VALUE.REFERENCE":
            target = value.child("INSTANCENAME", "LOCALINSTANCEPATH", "INSTANCEPATH")
            keys[binding.attribute("NAME")] = Key(str(read_path(target)), "reference")
        else:
            keys[binding.attribute("NAME")] = Key(value.text, value.attributes.get("VALUETYPE", "string"))
    return keys


def parse_path(text: str) -> ObjectPath | None:
    """The object path in the words of a CIMObject header; None where it is none."""
    space, _, rest = text.partition(":")
    name, _, keys = rest.partition(".")
    found, at = {}, 0
    while at < len(keys):
        match = _KEY.match(keys, at)
        if not match:
            return None
        key, quoted, bare = match.groups()
        found[key] = Key(re.sub(r"\\(.)", r"\1", quoted, flags=re.DOTALL) if quoted is not None else bare)
        at = match.end()
    return ObjectPath(name, found, space)


def same_object(header: str, path: ObjectPath) -> bool:
    """Whether a decoded CIMObject header names `path`, in whatever order of the keys."""
    named = parse_path(header)
    return (
        named is not None
        and named.identity == path.identity
        and (named.namespace or "").lower() == (path.namespace or "").lower()
    )


def encoded(text: str) -> str:
    """For a header: everything but letters, digits and a few marks as %XX of its UTF-8 bytes."""
    return quote(text, safe=_UNRESERVED)


def decoded(text: str) -> str:
    return unquote(text)


def _quoted(key: Key) -> str:
    if key.kind in ("numeric", "boolean"):
        return key.value
    return '"' + key.value.replace("\\", "\\\\").replace('"', '\\"') + '"'
