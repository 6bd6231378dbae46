# SPDX-License-Identifier: Apache-2.0
"""Lists of scripted answers, which every service of the BMC has: read from a scenario, used up one by one."""

from __future__ import annotations

from typing import Any, Callable, Protocol, TypeVar

from bmc.scenario import Checker, MemberPath


class Answer(Protocol):
    """What the lists hold; `repeat` keeps the last one."""

    @property
    def repeat(self) -> bool: ...


A = TypeVar("A", bound=Answer)


def read_list(
    check: Checker, value: Any, place: MemberPath, read: Callable[[Any, MemberPath], A]
) -> list[A]:
    """The answers of a list, or the one that stands there without a list. `read` is given mappings alone."""
    items = check.sequence([value] if isinstance(value, dict) else value, place)
    answers = []
    for number, item in enumerate(items):
        if not isinstance(item, dict):
            check.fail(place + (number,), "must be a mapping; {} is the service's own answer")
        answers.append(read(item, place + (number,)))
    for number, answer in enumerate(answers[:-1]):
        if answer.repeat:
            check.fail(place + (number, "repeat"), "only the last answer of a list can repeat")
    return answers


def next_of(left: list[A]) -> A:
    """The next answer of a list that is not used up."""
    return left[0] if len(left) == 1 and left[0].repeat else left.pop(0)
