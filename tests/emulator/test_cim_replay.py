# SPDX-License-Identifier: Apache-2.0
"""Recorded requests are sent again; the answers are those of the real server, byte for byte."""

from __future__ import annotations

import re
from pathlib import Path
from typing import Iterator

import pytest

from cim_client import OWN_RECORDINGS, RECORDINGS, Wire, pairs, raw_bytes, recording
from conftest import Bmc, Starter

_SIZE = {"SizeInBytes": {"type": "uint64", "value": 18446744073709551615}}
_SPECIAL = ' "mini" <&> back\\slash é'
_NOTE = re.compile(rb"\n\((connection left open|server closed the connection)\)\n*\Z")


def real_machine(suffix: str = "") -> dict:
    """The machine of the recordings: nobody is asked who he is, and nothing is exported."""
    objects = [(1, "ZOR:FFDC:1:1"), (2, "ZOR:FFDC:2:2"), (4, "ZOR:FFDC:3:4")]
    return {
        "user": "zorguest",
        "password": "secret pw",
        "cim": {
            "authentication": False,
            "challenge": 'Basic realm="vm"',
            "export": {"check": False},
            "data": [{"type": t, "id": name + suffix, "properties": _SIZE} for t, name in objects],
        },
    }


@pytest.fixture(scope="module")
def plain(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Bmc]:
    starter = Starter(tmp_path_factory.mktemp("plain"))
    yield starter(real_machine())
    starter.stop_all()


@pytest.fixture(scope="module")
def special(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Bmc]:
    starter = Starter(tmp_path_factory.mktemp("special"))
    yield starter(real_machine(_SPECIAL))
    starter.stop_all()


@pytest.fixture(scope="module")
def guarded(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Bmc]:
    starter = Starter(tmp_path_factory.mktemp("guarded"))
    machine = real_machine()
    del machine["cim"]["authentication"]
    yield starter(machine)
    starter.stop_all()


def exchanges(file: Path) -> dict[str, list[tuple[bytes, bytes]]]:
    """Requests and answers, by connection."""
    found: dict[str, list[tuple[bytes, bytes]]] = {}
    asked = b""
    for piece in recording(file):
        name, _, side = piece.title.partition(", ")
        if side == "client" and piece.data.startswith((b"POST ", b"M-POST ")):
            asked = piece.data
        elif side == "server" and asked:
            found.setdefault(name, []).append((asked, piece.data))
            asked = b""
    return found


def replay(bmc: Bmc, file: Path, tls: bool = False) -> int:
    """Every exchange in its order, each recorded connection on one of its own; how many they were."""
    count = 0
    for talk in exchanges(file).values():
        with Wire(bmc, tls) as wire:
            for asked, answered in talk:
                assert wire.ask(asked).raw == answered
                count += 1
    return count


def test_the_recordings_are_there() -> None:
    assert sum(len(talk) for talk in exchanges(RECORDINGS / "errors.txt").values()) == 10


def test_an_enumeration_is_answered_as_recorded(plain: Bmc) -> None:
    assert replay(plain, RECORDINGS / "enumerate.txt") == 1


def test_a_whole_export_is_answered_as_recorded_on_one_connection(special: Bmc) -> None:
    assert replay(special, RECORDINGS / "invoke.txt") == 4


def test_errors_are_answered_as_recorded_in_the_trailer(plain: Bmc) -> None:
    assert replay(plain, RECORDINGS / "errors.txt") == 10


@pytest.mark.parametrize("name", ["auth_good.txt", "auth_bad_password.txt"])
def test_credentials_are_asked_for_as_recorded(guarded: Bmc, name: str) -> None:
    assert replay(guarded, RECORDINGS / name) == 2


def test_credentials_are_asked_for_as_recorded_under_tls(guarded: Bmc) -> None:
    assert replay(guarded, RECORDINGS / "tls_self_signed.txt", tls=True) == 2


def test_another_client_is_answered_as_recorded(plain: Bmc) -> None:
    assert replay(plain, OWN_RECORDINGS / "wbemcli.txt") == 5


def handmade() -> list:
    return [
        pytest.param(asked, answered, file != "handmade.txt", id=case)
        for file in ("handmade.txt", "auth_handmade.txt")
        for case, asked, answered in pairs(RECORDINGS / file)
    ]


@pytest.mark.parametrize("asked, answered, with_account", handmade())
def test_a_request_written_by_hand_is_answered_as_recorded(
    plain: Bmc, guarded: Bmc, asked: bytes, answered: bytes, with_account: bool
) -> None:
    closed = b"closed" in _NOTE.search(answered)[1]
    with Wire(guarded if with_account else plain) as wire:
        wire.send(asked)
        if closed:
            got = wire.rest()
        else:
            got = wire.receive().raw
            assert wire.stays_open()

    assert without_chance(got) == without_chance(_NOTE.sub(b"", answered))


def without_chance(answer: bytes) -> bytes:
    """The date, and the number that an extended answer chooses for its headers."""
    answer = re.sub(rb"Date: \w{3}, \d\d \w{3} \d{4} \d\d:\d\d:\d\d GMT", b"Date: then", answer)
    chosen = re.search(rb"; ns=(\d\d)\r\n", answer)
    if not chosen:
        return answer
    return answer.replace(b"ns=" + chosen[1], b"ns=NN").replace(b"\n" + chosen[1] + b"-", b"\nNN-")


def test_the_order_of_the_headers_does_not_matter(plain: Bmc) -> None:
    """Names in capitals and small letters, as different clients write them."""
    _, asked, answered = next(pairs(RECORDINGS / "handmade.txt"))
    head, _, body = asked.partition(b"\r\n\r\n")
    start, *lines = head.split(b"\r\n")
    turned = b"\r\n".join([start, *(line.split(b":")[0].upper() + b":" + line.split(b":", 1)[1]
                                    for line in reversed(lines))])
    with Wire(plain) as wire:
        assert wire.ask(turned + b"\r\n\r\n" + body).raw == _NOTE.sub(b"", answered)


def test_every_character_in_keys_values_and_headers_is_read(plain: Bmc) -> None:
    """The object does not exist, so the answer to a request that was understood says that."""
    (invoked, _), (enumerated, _) = exchanges(RECORDINGS / "special_values.txt")["connection 1"]
    with Wire(plain) as wire:
        first, second = wire.ask(invoked), wire.ask(enumerated)

    assert (first.status, first.trailer) == (200, {
        "CIMStatusCode": "6", "CIMStatusCodeDescription": "CIM_ERR_NOT_FOUND%3A%20ZOR_X"})
    assert (second.status, second.trailer) == (200, {
        "CIMStatusCode": "5", "CIMStatusCodeDescription": "CIM_ERR_INVALID_CLASS%3A%20ZOR_X"})


def test_a_tls_hello_on_the_plain_port_is_turned_away(plain: Bmc) -> None:
    hello = next(p for p in recording(RECORDINGS / "errors.txt")
                 if p.title.endswith("client") and p.data.startswith(b"\x16\x03"))
    with Wire(plain) as wire:
        wire.send(hello.data)
        assert wire.rest() == b"HTTP/1.1 501 Not Implemented\r\n\r\n"


def test_recorded_bytes_are_read_as_what_they_stand_for() -> None:
    assert raw_bytes("a<CR>\n<C3><A9><VALUE>") == b"a\r\n\xc3\xa9<VALUE>"
