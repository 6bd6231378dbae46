# SPDX-License-Identifier: Apache-2.0
"""Reads a scenario: YAML text, checked member by member, so that a typing error is an error.

The core knows the members every service shares. Each service brings a function that reads its
own section. All errors are one line: file, line, member, what is wrong and what is allowed.
"""

from __future__ import annotations

import secrets
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, Callable, Mapping, NoReturn, Sequence

import yaml

MemberPath = tuple[Any, ...]
SectionReader = Callable[["Checker", Any], Any]

ROLES = ("Administrator", "Operator", "ReadOnly")

_LOADER = getattr(yaml, "CSafeLoader", yaml.SafeLoader)  # some scenarios hold megabytes
_DEEPEST = 100


class ScenarioError(Exception):
    """A scenario that cannot be used; the text is the whole explanation."""


@dataclass(frozen=True)
class Scenario:
    """What the BMC is to be and to do."""

    user: str
    password: str
    role: str
    sections: Mapping[str, Any] = field(default_factory=dict)
    given: frozenset[str] = frozenset()  # the members that the file has, empty ones too


class Checker:
    """Checks values and names the place of each one that is wrong."""

    def __init__(self, file: Path | None, lines: Mapping[MemberPath, int]) -> None:
        self._file = file
        self._lines = lines

    @property
    def folder(self) -> Path:
        """The folder that relative file names of the scenario are meant from."""
        return self._file.parent if self._file else Path.cwd()

    def fail(self, path: MemberPath, what: str) -> NoReturn:
        line = next(
            (self._lines[path[:n]] for n in range(len(path), -1, -1) if path[:n] in self._lines), 1
        )
        name = member_name(path)
        raise ScenarioError(f"{self._file}:{line}: {name + ': ' if name else ''}{what}")

    def mapping(self, value: Any, path: MemberPath, allowed: Sequence[str] | None = None) -> dict:
        if value is None:
            value = {}
        if not isinstance(value, dict):
            self.fail(path, f"must be a mapping, not {kind(value)}")
        for key in value:
            if not isinstance(key, str):
                self.fail(path + (key,), "a member's name must be text (put it in quotes)")
            if allowed is not None and key not in allowed:
                self.fail(path + (key,), f"unknown member; allowed: {', '.join(allowed)}")
        return value

    def sequence(self, value: Any, path: MemberPath) -> list:
        if not isinstance(value, list):
            self.fail(path, f"must be a list, not {kind(value)}")
        return value

    def text(self, value: Any, path: MemberPath) -> str:
        if not isinstance(value, str):
            self.fail(path, f"must be text, not {kind(value)} (put it in quotes)")
        return value

    def whole(self, value: Any, path: MemberPath, low: int, high: int) -> int:
        if isinstance(value, bool) or not isinstance(value, int) or not low <= value <= high:
            self.fail(path, f"must be a whole number from {low} to {high}, not {value!r}")
        return value

    def number(self, value: Any, path: MemberPath, low: float, high: float) -> float:
        if isinstance(value, bool) or not isinstance(value, (int, float)):
            self.fail(path, f"must be a number from {low:g} to {high:g}, not {kind(value)}")
        if not low <= value <= high:
            self.fail(path, f"must be a number from {low:g} to {high:g}, not {value!r}")
        return float(value)

    def flag(self, value: Any, path: MemberPath) -> bool:
        if not isinstance(value, bool):
            self.fail(path, f"must be true or false, not {kind(value)}")
        return value

    def choice(self, value: Any, path: MemberPath, allowed: Sequence[str]) -> str:
        if value not in allowed:
            self.fail(path, f"unknown value {value!r}; allowed: {', '.join(allowed)}")
        return value


def kind(value: Any) -> str:
    """A value's type in the words of a scenario's author."""
    names = {dict: "a mapping", list: "a list", str: "text", bool: "true/false", type(None): "null"}
    return names.get(type(value), f"the {type(value).__name__} {value!r}")


def member_name(path: MemberPath) -> str:
    """('redfish', 'answers', 'GET /x', 0) -> redfish.answers."GET /x"[0]."""
    name = ""
    for part in path:
        if isinstance(part, int) and not isinstance(part, bool):
            name += f"[{part}]"
        elif isinstance(part, str) and part.replace("_", "").isalnum():
            name += f".{part}" if name else part
        else:
            name += f'."{part}"' if name else f'"{part}"'
    return name


def load(file: Path | None, readers: Mapping[str, SectionReader]) -> Scenario:
    """The scenario in `file`, or the default one where there is no file."""
    data, lines = parse(file) if file else ({}, {})
    return _read(Checker(file, lines), data, readers)


def from_data(data: Any, readers: Mapping[str, SectionReader]) -> Scenario:
    """The scenario that a file with this data would hold."""
    return _read(Checker(None, {}), data, readers)


def _read(check: Checker, data: Any, readers: Mapping[str, SectionReader]) -> Scenario:
    top = check.mapping(data, (), ("user", "password", "role", *readers))
    return Scenario(
        user=check.text(top.get("user", "admin"), ("user",)),
        password=check.text(top.get("password", secrets.token_hex(8)), ("password",)),
        role=check.choice(top.get("role", "Administrator"), ("role",), ROLES),
        sections={name: read(check, top.get(name)) for name, read in readers.items()},
        given=frozenset(top),
    )


def parse(file: Path) -> tuple[Any, dict[MemberPath, int]]:
    """The data of a YAML file and the line of each of its members."""
    try:
        text = file.read_text(encoding="utf-8")
    except (OSError, UnicodeDecodeError) as error:
        raise ScenarioError(f"{file}: cannot be read: {getattr(error, 'strerror', error)}") from error
    lines: dict[MemberPath, int] = {}
    try:
        _check_depth(text)
        loader = _LOADER(text)
        try:
            node = loader.get_single_node()
            _note_lines(node, (), lines, file)
            return None if node is None else loader.construct_document(node), lines
        finally:
            loader.dispose()
    except yaml.MarkedYAMLError as error:
        last = max(1, len(text.splitlines()))  # the end that a parser did not expect may lie behind it
        line = min(error.problem_mark.line + 1, last) if error.problem_mark else 1
        raise ScenarioError(f"{file}:{line}: not YAML: {error.problem}") from error
    except (yaml.YAMLError, RecursionError, ValueError) as error:
        raise ScenarioError(f"{file}: not YAML: {' '.join(str(error).split())}") from error


def _check_depth(text: str) -> None:
    """libyaml's own parser takes any depth, what makes nodes of it would run out of stack."""
    depth = 0
    for event in yaml.parse(text, Loader=_LOADER):
        depth += isinstance(event, yaml.CollectionStartEvent)
        depth -= isinstance(event, yaml.CollectionEndEvent)
        if depth > _DEEPEST:
            raise ValueError(f"more than {_DEEPEST} levels")


def _note_lines(node: Any, path: MemberPath, lines: dict[MemberPath, int], file: Path) -> None:
    if node is None:
        return
    lines.setdefault(path, node.start_mark.line + 1)
    if isinstance(node, yaml.SequenceNode):
        for index, item in enumerate(node.value):
            _note_lines(item, path + (index,), lines, file)
    elif isinstance(node, yaml.MappingNode):
        for key, value in node.value:
            place = path + (key.value,)
            if place in lines:
                line = key.start_mark.line + 1
                raise ScenarioError(f"{file}:{line}: {member_name(place)}: given twice")
            lines[place] = key.start_mark.line + 1
            _note_lines(value, place, lines, file)
