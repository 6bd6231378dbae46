# SPDX-License-Identifier: Apache-2.0
"""The `ipmi` section of a scenario."""

from __future__ import annotations

from dataclasses import dataclass, field
from typing import Any, Mapping, Sequence

from bmc.answer_lists import read_list
from bmc.ipmi.suites import SUITES
from bmc.scenario import Checker, MemberPath

Command = tuple[int, int]  # network function, command

COLLECT: Command = (0x3A, 0x49)
POLL: Command = (0x3A, 0x4D)
CREDENTIAL: Command = (0x3A, 0x79)

_NAMES = {"collect": COLLECT, "poll": POLL, "credential": CREDENTIAL}
_MEMBERS = ("users", "cipher_suites", "refusal", "privilege", "polls", "credential", "silent", "answer_time",
            "one_at_a_time", "network", "answers")
_ANSWER_MEMBERS = ("code", "data", "delay", "hang", "gone", "repeat", "as")
_NETWORK_MEMBERS = ("loss", "duplicates", "reordered", "seed")
_LARGEST_DATA = 255
_LONGEST_DELAY = 3600


@dataclass(frozen=True)
class IpmiAnswer:
    """One scripted answer. Without code and data it is the BMC's own, sent in this manner."""

    code: int | None = None
    data: bytes | None = None
    delay: float = 0
    hang: bool = False
    gone: bool = False
    repeat: bool = False
    answers_as: Command | None = None  # another command's answer, by its network function and number

    @property
    def is_own(self) -> bool:
        return self.code is None and self.data is None


OWN = IpmiAnswer()


@dataclass(frozen=True)
class NetworkSettings:
    """What becomes of the datagrams on their way, in percent of them and for each direction."""

    loss: float = 0
    duplicates: float = 0
    reordered: float = 0
    seed: int = 1


@dataclass(frozen=True)
class IpmiSettings:
    """What the IPMI service is to be."""

    users: Mapping[str, str] = field(default_factory=dict)  # passwords of accounts beside the BMC's
    cipher_suites: Sequence[int] = (3, 17)
    refusal: int = 0x11  # the RMCP+ status code for suites that are not offered
    privilege: int = 4  # the highest that the user may ask for; 4: administrator
    polls: int = 2  # "finished?" is answered "no" this many times; -1: always
    credential: tuple[str, str] | None = None  # None: the BMC's own account
    silent: bool = False
    answer_time: float = 0  # seconds for each datagram, those of the set-up too
    one_at_a_time: bool = False  # datagrams that come meanwhile wait
    network: NetworkSettings = NetworkSettings()
    answers: Mapping[Command, Sequence[IpmiAnswer]] = field(default_factory=dict)


def read_ipmi(check: Checker, value: Any) -> IpmiSettings:
    """Reads and checks the section."""
    place = ("ipmi",)
    entry = check.mapping(value, place, _MEMBERS)
    return IpmiSettings(
        users=_read_users(check, entry.get("users"), place + ("users",)),
        cipher_suites=_read_suites(check, entry, place + ("cipher_suites",)),
        refusal=check.whole(entry.get("refusal", 0x11), place + ("refusal",), 1, 0xFF),
        privilege=check.whole(entry.get("privilege", 4), place + ("privilege",), 1, 4),
        polls=check.whole(entry.get("polls", 2), place + ("polls",), -1, 1 << 31),
        credential=_read_credential(check, entry, place + ("credential",)),
        silent=check.flag(entry.get("silent", False), place + ("silent",)),
        answer_time=check.number(
            entry.get("answer_time", 0), place + ("answer_time",), 0, _LONGEST_DELAY),
        one_at_a_time=check.flag(entry.get("one_at_a_time", False), place + ("one_at_a_time",)),
        network=_read_network(check, entry.get("network"), place + ("network",)),
        answers=_read_answers(check, entry.get("answers"), place + ("answers",)),
    )


def _read_suites(check: Checker, entry: Mapping[str, Any], place: MemberPath) -> Sequence[int]:
    suites = check.sequence(entry.get("cipher_suites", [3, 17]), place)
    for index, suite in enumerate(suites):
        if suite not in SUITES:
            check.fail(place + (index,), f"is not one of {', '.join(map(str, SUITES))}")
    return tuple(suites)


def _read_users(check: Checker, value: Any, place: MemberPath) -> dict[str, str]:
    users = check.mapping(value, place)
    return {name: check.text(password, place + (name,)) for name, password in users.items()}


def _read_network(check: Checker, value: Any, place: MemberPath) -> NetworkSettings:
    entry = check.mapping(value, place, _NETWORK_MEMBERS)
    shares = {name: check.number(entry.get(name, 0), place + (name,), 0, 100)
              for name in ("loss", "duplicates", "reordered")}
    return NetworkSettings(
        **shares, seed=check.whole(entry.get("seed", 1), place + ("seed",), 0, 1 << 31))


def _read_credential(
    check: Checker, entry: Mapping[str, Any], place: MemberPath
) -> tuple[str, str] | None:
    if "credential" not in entry:
        return None
    account = check.mapping(entry["credential"], place, ("user", "password"))
    texts = []
    for name in ("user", "password"):
        text = check.text(account.get(name, ""), place + (name,))
        if len(text.encode()) > 255:
            check.fail(place + (name,), "has more than the 255 bytes that its length byte can say")
        texts.append(text)
    return texts[0], texts[1]


def _read_answers(
    check: Checker, value: Any, place: MemberPath
) -> dict[Command, list[IpmiAnswer]]:
    answers: dict[Command, list[IpmiAnswer]] = {}
    for name, entries in check.mapping(value, place).items():
        command = _read_command(check, name, place + (name,))
        if command in answers:
            check.fail(place + (name,), "the same command is named twice")
        answers[command] = read_list(
            check, entries, place + (name,), lambda item, at: _read_answer(check, item, at))
    return answers


def _read_command(check: Checker, name: Any, place: MemberPath) -> Command:
    name = check.text(name, place)
    if name in _NAMES:
        return _NAMES[name]
    try:
        netfn, command = bytes.fromhex(name)
    except ValueError:
        known = ", ".join(_NAMES)
        check.fail(place, f'is no command; known: {known}, or two bytes "3A 49" (function, command)')
    return netfn, command


def _read_answer(check: Checker, value: Any, place: MemberPath) -> IpmiAnswer:
    entry = check.mapping(value, place, _ANSWER_MEMBERS)
    silent = [name for name in ("hang", "gone") if entry.get(name)]
    for name in ("code", "data", "delay", "as"):
        if silent and name in entry:
            check.fail(place + (name,), f"{silent[0]} sends no answer")
    return IpmiAnswer(
        code=check.whole(entry["code"], place + ("code",), 0, 255) if "code" in entry else None,
        data=_read_data(check, entry["data"], place + ("data",)) if "data" in entry else None,
        delay=check.number(entry.get("delay", 0), place + ("delay",), 0, _LONGEST_DELAY),
        hang=check.flag(entry.get("hang", False), place + ("hang",)),
        gone=check.flag(entry.get("gone", False), place + ("gone",)),
        repeat=check.flag(entry.get("repeat", False), place + ("repeat",)),
        answers_as=_read_command(check, entry["as"], place + ("as",)) if "as" in entry else None,
    )


def _read_data(check: Checker, value: Any, place: MemberPath) -> bytes:
    try:
        data = bytes.fromhex(check.text(value, place))
    except ValueError:
        check.fail(place, 'must be hexadecimal digits in pairs, for instance "04 72 6f 6f 74"')
    if len(data) > _LARGEST_DATA:
        check.fail(place, f"has more than {_LARGEST_DATA} bytes")
    return data
