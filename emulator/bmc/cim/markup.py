# SPDX-License-Identifier: Apache-2.0
"""XML as CIM servers read and write it.

A reader of its own, because what clients send is not quite XML: references to control characters
(`&#1;`) are common and no general parser takes them. It knows no document types, so there are no
entities to expand.
"""

from __future__ import annotations

import re
from dataclasses import dataclass, field
from typing import NoReturn

DECLARATION = '<?xml version="1.0" encoding="utf-8" ?>\n'

_DEEPEST = 256
_NAMED = {"amp": "&", "lt": "<", "gt": ">", "quot": '"', "apos": "'"}
_ESCAPES = {"&": "&amp;", "<": "&lt;", ">": "&gt;", '"': "&quot;", "'": "&apos;"}
_REFERENCES = str.maketrans({**{chr(n): f"&#{n};" for n in (*range(32), 127)}, **_ESCAPES})

_DECLARED = re.compile(r"<\?xml\s[^>]*\?>")
_NAME = re.compile(r"[A-Za-z_:][\w:.-]*")
_ATTRIBUTE = re.compile(r"\s+([A-Za-z_:][\w:.-]*)\s*=\s*")
_VALUE = re.compile(r'"([^"<]*)"|\'([^\'<]*)\'')
_TAG_END = re.compile(r"\s*(/?)>")
_REFERENCE = re.compile(r"&(?:#(\d+)|#x([0-9A-Fa-f]+)|(\w+));|&")


class NotValid(Exception):
    """XML, but not what was to come. The text names the line."""


class NotWellFormed(Exception):
    """No XML."""


@dataclass
class Element:
    """One element. `raw` is its own text with the references still in it."""

    name: str
    line: int
    attributes: dict[str, str] = field(default_factory=dict)
    children: list["Element"] = field(default_factory=list)
    raw: str = ""

    @property
    def text(self) -> str:
        """The text as it was sent."""
        return _resolved(self.raw, self.line)

    @property
    def trimmed(self) -> str:
        """The text without literal blanks at its ends; those written as references stay."""
        return _resolved(self.raw.strip(), self.line)

    def attribute(self, name: str) -> str:
        if name not in self.attributes:
            self.refuse(f"missing {self.name}.{name} attribute")
        return self.attributes[name]

    def child(self, *names: str) -> "Element":
        """The only child, of one of these names."""
        if len(self.children) != 1 or self.children[0].name not in names:
            self.refuse(f"Expected {' or '.join(names)} element")
        return self.children[0]

    def refuse(self, what: str) -> NoReturn:
        raise NotValid(f"Validation error: on line {self.line}: {what}")


def parse(data: bytes) -> Element:
    """The root element. A declaration must come first."""
    try:
        text = data.decode("utf-8")
    except UnicodeDecodeError:
        raise NotWellFormed("Bad character: not UTF-8") from None
    declared = _DECLARED.match(text)
    if not declared:
        raise NotValid("Validation error: on line 1: Expected <?xml ... ?> style declaration")
    return _Reader(text, declared.end()).document()


def escaped(text: str) -> str:
    """Text for an element: no two literal blanks side by side, none at the ends."""
    text = text.translate(_REFERENCES)
    if text.startswith(" "):
        text = "&#32;" + text[1:]
    if text.endswith(" "):
        text = text[:-1] + "&#32;"
    return text.replace("  ", " &#32;")


def _resolved(raw: str, line: int) -> str:
    def one(match: re.Match[str]) -> str:
        decimal, hexadecimal, name = match.groups()
        try:
            if decimal or hexadecimal:
                character = chr(int(decimal or hexadecimal, 10 if decimal else 16))
                character.encode()  # no half of a pair
                return character
            return _NAMED[name]
        except (KeyError, ValueError, OverflowError):
            raise NotWellFormed(f"Bad reference: on line {line}") from None

    return _REFERENCE.sub(one, raw)


class _Reader:
    """Walks through the text once; the open elements lie on a stack, not on Python's."""

    def __init__(self, text: str, start: int) -> None:
        self._text = text
        self._at = start
        self._line = 1 + text.count("\n", 0, start)
        self._open: list[Element] = []
        self._root: Element | None = None

    def document(self) -> Element:
        while self._at < len(self._text):
            opening = self._text.find("<", self._at)
            self._take_text(opening if opening >= 0 else len(self._text))
            if opening >= 0:
                self._take_markup()
        if self._open or self._root is None:
            self._fail("Unexpected end of the document")
        return self._root

    def _fail(self, what: str) -> NoReturn:
        raise NotWellFormed(f"{what}: on line {self._line}")

    def _move(self, to: int) -> str:
        passed = self._text[self._at : to]
        self._line += passed.count("\n")
        self._at = to
        return passed

    def _take_text(self, end: int) -> None:
        line = self._line
        text = self._move(end)
        if self._open:
            _resolved(text, line)
            self._open[-1].raw += text
        elif text.strip():
            self._fail("Text outside of an element")

    def _take_markup(self) -> None:
        for opener, closer in (("<!--", "-->"), ("<![CDATA[", "]]>"), ("<?", "?>")):
            if self._text.startswith(opener, self._at):
                return self._take_block(opener, closer)
        if self._text.startswith("<!", self._at):
            self._fail("A document type is not taken")
        if self._text.startswith("</", self._at):
            return self._take_end()
        self._take_start()

    def _take_block(self, opener: str, closer: str) -> None:
        end = self._text.find(closer, self._at + len(opener))
        if end < 0:
            self._fail("Unexpected end of the document")
        content = self._move(end + len(closer))[len(opener) : -len(closer)]
        if opener == "<![CDATA[" and self._open:
            self._open[-1].raw += "".join(_ESCAPES.get(c, c) for c in content)

    def _take_end(self) -> None:
        name = _NAME.match(self._text, self._at + 2)
        if not name:
            self._fail("Bad closing element")
        if not self._open or self._open[-1].name != name.group():
            self._fail("Closing element does not match opening element")
        end = re.compile(r"\s*>").match(self._text, name.end())
        if not end:
            self._fail("Bad closing element")
        self._move(end.end())
        self._open.pop()

    def _take_start(self) -> None:
        name = _NAME.match(self._text, self._at + 1)
        if not name:
            self._fail("Bad opening element")
        element = Element(name.group(), self._line)
        self._move(name.end())
        end = self._take_attributes(element)
        self._place(element)
        if not end.group(1):
            self._open.append(element)

    def _take_attributes(self, element: Element) -> re.Match[str]:
        while not (end := _TAG_END.match(self._text, self._at)):
            name = _ATTRIBUTE.match(self._text, self._at)
            if not name:
                self._fail("Bad attribute value" if element.attributes else "Bad opening element")
            self._move(name.end())
            value = _VALUE.match(self._text, self._at)
            if not value or name.group(1) in element.attributes:
                self._fail("Bad attribute value" if not value else "Attribute given twice")
            raw = value.group(1) if value.group(1) is not None else value.group(2)
            element.attributes[name.group(1)] = _resolved(raw, self._line)
            self._move(value.end())
        self._move(end.end())
        return end

    def _place(self, element: Element) -> None:
        if len(self._open) >= _DEEPEST:
            self._fail("Too many nested elements")
        if self._open:
            self._open[-1].children.append(element)
        elif self._root is None:
            self._root = element
        else:
            self._fail("More than one root element")
