# SPDX-License-Identifier: Apache-2.0
"""The steps of an export's task: what a scenario lets it say, one step after the other."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any, Mapping, Sequence

from bmc.redfish.registries import MESSAGES, message_object, registry_of
from bmc.scenario import Checker, MemberPath

USUAL = ("New", "Starting", "Running", "Running", "Completed")
OWN = object()  # the service says what it would say by itself
_STEP_MEMBERS = ("state", "percent", "status", "messages", "gone")
_MESSAGE_MEMBERS = ("text", "fill", "name", "args", "severity", "resolution", "json")
_LONGEST_TEXT = 64 * 1024 * 1024


@dataclass(frozen=True)
class TaskStep:
    """What the task shows while it stands at this step."""

    state: Any
    percent: Any = OWN  # None: the member is missing
    status: Any = OWN
    messages: Sequence[Any] = ()  # what is added to Messages when the step is reached
    gone: bool = False  # the task is no longer there: 404


def read_steps(check: Checker, value: Any, path: MemberPath) -> Sequence[TaskStep]:
    """Reads `task_states`: each entry is a state alone or a mapping."""
    entries = check.sequence(list(USUAL) if value is None else value, path)
    if not entries:
        check.fail(path, "must name at least one state")
    return tuple(_read_step(check, entry, path + (n,)) for n, entry in enumerate(entries))


def check_state(check: Checker, state: Any, path: MemberPath) -> Any:
    """Any text is a state; a number and null (no member) are faults that can be asked for."""
    if isinstance(state, (dict, list)):
        check.fail(path, "must be text, a number, true, false or null (leaves TaskState out)")
    return state


def _read_step(check: Checker, value: Any, path: MemberPath) -> TaskStep:
    if not isinstance(value, dict):
        return TaskStep(check_state(check, value, path))
    entry = check.mapping(value, path, _STEP_MEMBERS)
    gone = check.flag(entry.get("gone", False), path + ("gone",))
    if "state" not in entry and not gone:
        check.fail(path, "state is missing (only a task that is gone has none)")
    messages = check.sequence(entry.get("messages", []), path + ("messages",))
    return TaskStep(
        state=check_state(check, entry.get("state"), path + ("state",)),
        percent=_plain(check, entry, path, "percent"),
        status=_plain(check, entry, path, "status"),
        messages=tuple(_read_message(check, m, path + ("messages", n)) for n, m in enumerate(messages)),
        gone=gone,
    )


def _plain(check: Checker, entry: Mapping[str, Any], path: MemberPath, name: str) -> Any:
    value = entry.get(name, OWN)
    if isinstance(value, (dict, list)):
        check.fail(path + (name,), "must be a single value; null leaves the member out")
    return value


def _read_message(check: Checker, value: Any, path: MemberPath) -> Any:
    """A text is a note of the BMC's own; a mapping a message of a registry, or anything at all."""
    if not isinstance(value, dict):
        return message_object("Note", check.text(value, path))
    entry = check.mapping(value, path, _MESSAGE_MEMBERS)
    kinds = [name for name in ("text", "fill", "name", "json") if name in entry]
    if len(kinds) != 1:
        check.fail(path, "needs one of text, fill, name, json")
    if "json" in entry:
        return entry["json"]
    message = _message(check, entry, path)
    for member, name in (("Severity", "severity"), ("MessageSeverity", "severity"), ("Resolution", "resolution")):
        if name in entry:
            message[member] = check.text(entry[name], path + (name,))
    return message


def _message(check: Checker, entry: Mapping[str, Any], path: MemberPath) -> dict[str, Any]:
    if "fill" in entry:
        return message_object("Note", "x" * check.whole(entry["fill"], path + ("fill",), 0, _LONGEST_TEXT))
    if "text" in entry:
        return message_object("Note", check.text(entry["text"], path + ("text",)))
    name = check.choice(entry["name"], path + ("name",), [n for known in MESSAGES.values() for n in known])
    args = check.sequence(entry.get("args", []), path + ("args",))
    texts = [check.text(arg, path + ("args", n)) for n, arg in enumerate(args)]
    needed = MESSAGES[registry_of(name)][name].arguments
    if len(texts) != needed:
        check.fail(path + ("args",), f"{name} takes {needed}, not {len(texts)}")
    return message_object(name, *texts)
