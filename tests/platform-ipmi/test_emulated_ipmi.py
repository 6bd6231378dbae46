# SPDX-License-Identifier: Apache-2.0
"""The emulated BMC's IPMI by itself: scenarios, malformed input, the way from the host."""

from __future__ import annotations

import os
import random
import socket
import time
from pathlib import Path
from typing import Any

import pytest

import warm_bmc

GET_CAPABILITIES = bytes.fromhex("0600ff07" "00" "00000000" "00000000" "09" "2018c88100388e04b5")
OPEN_SESSION_17 = bytes.fromhex(
    "0600ff07" "0610" "00000000" "00000000" "2000" "01000000" "44332211"
    "0000000803000000" "0100000804000000" "0200000801000000")


def ask(bmc: Any, datagram: bytes, wait: float = 5) -> bytes | None:
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as client:
        client.connect((bmc.address, int(bmc.port)))
        client.settimeout(wait)
        client.send(datagram)
        try:
            return client.recv(2048)
        except socket.timeout:
            return None


class Kcs:
    """The host's side of the interface."""

    def __init__(self, bmc: Any) -> None:
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._socket.settimeout(10)
        self._socket.connect("\0" + bmc.ready["ipmi"]["kcs"])

    def ask(self, request: str) -> str:
        data = bytes.fromhex(request)
        self._socket.sendall(len(data).to_bytes(2, "big") + data)
        length = int.from_bytes(self._read(2), "big")
        return self._read(length).hex()

    def _read(self, size: int) -> bytes:
        data = b""
        while len(data) < size:
            piece = self._socket.recv(size - len(data))
            assert piece, "the interface was closed"
            data += piece
        return data


def test_capabilities_and_open_session_are_answered_as_ipmi_2(start_bmc):
    bmc = start_bmc()

    capabilities = ask(bmc, GET_CAPABILITIES)
    opened = ask(bmc, OPEN_SESSION_17)

    assert capabilities[14:20] == bytes([0x81, 0x1C, 0x63, 0x20, 0x00, 0x38])
    assert capabilities[22] & 0x80 and capabilities[24] & 0x02
    assert opened[5] == 0x11
    assert opened[16:18] == b"\x01\x00" and opened[20:24] == bytes.fromhex("44332211")
    assert [opened[offset] for offset in (32, 40, 48)] == [3, 4, 1]


def test_polls_count_from_each_start_whichever_way_it_came(start_bmc):
    kcs = Kcs(start_bmc({"polls": 1}))

    assert [kcs.ask("3a4901"), kcs.ask("3a4d01"), kcs.ask("3a4d01")] == ["00", "0000", "0001"]
    assert [kcs.ask("3a4901"), kcs.ask("3a4d01"), kcs.ask("3a4d01")] == ["00", "0000", "0001"]


def test_interface_gives_the_account_and_scripted_answers(start_bmc):
    kcs = Kcs(start_bmc({"answers": {
        "credential": [{}, {"code": 0xC1}], "3A 50": [{"data": "0102", "repeat": True}],
    }}))

    assert kcs.ask("3a7901") == "00" "05" + b"admin".hex() + "06" + b"secret".hex()
    assert kcs.ask("3a7901") == "c1"
    assert [kcs.ask("3a50"), kcs.ask("3a50")] == ["000102", "000102"]
    assert kcs.ask("3a51") == "c1"


def test_noise_is_survived(start_bmc):
    bmc = start_bmc()
    noise = random.Random(20240301)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as client:
        client.connect((bmc.address, int(bmc.port)))
        client.send(OPEN_SESSION_17)
        for number in range(300):
            head = noise.choice([b"", b"\x06\x00\xff\x07\x06", b"\x06\x00\xff\x07\x00",
                                 b"\x06\x00\xff\x07\x06" + bytes([noise.randrange(256)])])
            client.send(head + noise.randbytes(noise.randrange(80)))
            if number % 20 == 19:  # not faster than it can read
                assert ask(bmc, GET_CAPABILITIES) is not None, number

    assert any(request["event"] == "malformed" for request in bmc.requests())


def answers(bmc: Any, datagrams: list[bytes], wait: float) -> list[tuple[float, bytes]]:
    """What comes back, each with the seconds since the first one was sent."""
    came = []
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as client:
        client.connect((bmc.address, int(bmc.port)))
        begin = time.monotonic()
        for datagram in datagrams:
            client.send(datagram)
        while (left := begin + wait - time.monotonic()) > 0:
            client.settimeout(left)
            try:
                datagram = client.recv(2048)
                came.append((time.monotonic() - begin, datagram))
            except socket.timeout:
                break
    return came


def capabilities(number: int) -> bytes:
    body = bytes([0x81, number << 2, 0x38, 0x8E, 0x04])
    return GET_CAPABILITIES[:-6] + body + bytes([-sum(body) & 0xFF])


def numbers_of(came: list[tuple[float, bytes]]) -> list[int]:
    return [datagram[18] >> 2 for _, datagram in came]


def test_every_datagram_is_answered_in_its_time_with_its_own_number(start_bmc):
    bmc = start_bmc({"answer_time": 0.5})

    came = answers(bmc, [capabilities(number) for number in (1, 2, 3)], wait=1)

    assert numbers_of(came) == [1, 2, 3]
    assert all(0.45 <= seconds < 0.9 for seconds, _ in came)


def test_bmc_that_does_one_thing_at_a_time_answers_one_after_the_other(start_bmc):
    bmc = start_bmc({"answer_time": 0.4, "one_at_a_time": True})

    came = answers(bmc, [capabilities(number) for number in (1, 2, 3)], wait=2)

    assert numbers_of(came) == [1, 2, 3]
    assert [round(seconds / 0.4) for seconds, _ in came] == [1, 2, 3]


def test_network_loses_doubles_and_reorders_the_same_datagrams_for_the_same_seed(start_bmc):
    sent = [capabilities(number) for number in range(60)]

    def numbers(**network: float) -> list[int]:
        return numbers_of(answers(start_bmc({"network": network}), sent, wait=1))

    lossy = numbers(loss=10, seed=3)
    assert 40 < len(lossy) < 60
    assert lossy == numbers(loss=10, seed=3)
    assert lossy != numbers(loss=10, seed=4)
    assert numbers(duplicates=100) == sorted(4 * list(range(60)))
    late = numbers(reordered=20)
    assert sorted(late) == list(range(60)) != late
    assert numbers() == list(range(60))


def test_suite_that_is_not_offered_is_refused_with_the_code_of_the_scenario(start_bmc):
    assert ask(start_bmc({"cipher_suites": [3]}), OPEN_SESSION_17)[17] == 0x11
    assert ask(start_bmc({"cipher_suites": [3], "refusal": 4}), OPEN_SESSION_17)[17] == 0x04


def test_silent_bmc_records_and_says_nothing(start_bmc):
    bmc = start_bmc({"silent": True})

    assert ask(bmc, GET_CAPABILITIES, wait=0.5) is None

    assert bmc.requests() == [
        {"service": "ipmi", "interface": "lan", "event": "ignored", "bytes": len(GET_CAPABILITIES)}]


@pytest.mark.parametrize("text, place", [
    ("{nonsense: 1}", "ipmi.nonsense: unknown member"),
    ("{cipher_suites: [8]}", "ipmi.cipher_suites[0]: is not one of 3, 17"),
    ("{cipher_suites: 3}", "ipmi.cipher_suites: must be a list"),
    ("{polls: -2}", "ipmi.polls: must be a whole number"),
    ("{privilege: 5}", "ipmi.privilege: must be a whole number"),
    ("{credential: {user: 7}}", "ipmi.credential.user: must be text"),
    ("{answers: {dance: []}}", "ipmi.answers.dance: is no command"),
    ("{answers: {'3A': []}}", "ipmi.answers.3A: is no command"),
    ("{answers: {poll: [{code: 256}]}}", "ipmi.answers.poll[0].code: must be a whole number"),
    ("{answers: {poll: [{data: 'abc'}]}}", "ipmi.answers.poll[0].data: must be hexadecimal"),
    ("{answers: {poll: [{hang: true, code: 1}]}}", "ipmi.answers.poll[0].code: hang sends no answer"),
    ("{users: {root: 7}}", "ipmi.users.root: must be text"),
    ("{refusal: 0}", "ipmi.refusal: must be a whole number"),
    ("{answer_time: -1}", "ipmi.answer_time: must be a number"),
    ("{one_at_a_time: 1}", "ipmi.one_at_a_time: must be true or false"),
    ("{network: {loss: 101}}", "ipmi.network.loss: must be a number from 0 to 100"),
    ("{network: {rain: 1}}", "ipmi.network.rain: unknown member"),
    ("{answers: {poll: [{as: 7}]}}", "ipmi.answers.poll[0].as: must be text"),
    ("{answers: {poll: [{as: '3A'}]}}", "ipmi.answers.poll[0].as: is no command"),
    ("{answers: {poll: [{repeat: true}, {}]}}", "only the last answer of a list can repeat"),
    ("{answers: {poll: [{}], '3A 4D': [{}]}}", "the same command is named twice"),
])
def test_scenario_that_is_wrong_is_refused_with_its_place(tmp_path: Path, text: str, place: str):
    scenario = tmp_path / "scenario.yaml"
    scenario.write_text(f"ipmi: {text}\n")

    run = warm_bmc.run(["--scenario", scenario], dict(os.environ))

    assert run.returncode == 2
    assert place in run.stderr
    assert run.stderr.count("\n") == 1
