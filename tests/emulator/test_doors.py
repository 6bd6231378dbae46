# SPDX-License-Identifier: Apache-2.0
"""Services that cannot be reached: refused at once, or swallowed."""

from __future__ import annotations

import socket

import pytest

from conftest import ROOT, Bmc, Starter, outcome


def ports(bmc: Bmc) -> dict[str, int]:
    return {"redfish": bmc.port, "cim": bmc.ready["cim"]["port"], "cim-https": bmc.ready["cim"]["https_port"]}


def answers(bmc: Bmc, port: int) -> str:
    try:
        socket.create_connection((bmc.address, port), timeout=1).close()
    except ConnectionRefusedError:
        return "refuses"
    except socket.timeout:
        return "is silent"
    return "listens"


CAPABILITIES = bytes.fromhex("0600ff07 00000000000000000009 2018c88100388e04 b5")  # needs no session
PRESENCE_PING = bytes.fromhex("0600ff06 000011be 80 2a 00 00")  # its tag is 2a


def datagram_answer(bmc: Bmc, request: bytes) -> bytes:
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as asking:
        asking.settimeout(2)
        asking.connect((bmc.address, bmc.ready["ipmi"]["port"]))
        asking.send(request)
        return asking.recv(100)


def ipmi_answers(bmc: Bmc) -> str:
    try:
        assert datagram_answer(bmc, CAPABILITIES)
    except ConnectionRefusedError:
        return "refuses"
    except socket.timeout:
        return "is silent"
    return "listens"


def test_a_presence_ping_is_answered_with_a_pong(bmc: Bmc) -> None:
    answer = datagram_answer(bmc, PRESENCE_PING)

    assert answer[:12] == bytes.fromhex("0600ff06 000011be 40 2a 00 10")
    assert answer[20] == 0x81  # IPMI, and the version of this exchange
    assert len(answer) == 28


@pytest.mark.parametrize("closed", [[], ["redfish"], ["cim", "cim-https"], ["redfish", "cim"], ["cim-https"]], ids=str)
def test_closed_services_refuse_and_the_others_listen(start: Starter, closed: list[str]) -> None:
    bmc = start({"closed": closed})

    assert {name: answers(bmc, port) for name, port in ports(bmc).items()} == {
        name: "refuses" if name in closed else "listens" for name in ports(bmc)}
    assert ipmi_answers(bmc) == "listens"


def test_ipmi_can_be_closed(start: Starter) -> None:
    bmc = start({"closed": ["ipmi"]})

    assert ipmi_answers(bmc) == "refuses"
    with pytest.raises(ConnectionRefusedError):
        datagram_answer(bmc, PRESENCE_PING)
    assert bmc.get(ROOT).status == 200


def test_a_filter_swallows_what_comes(start: Starter) -> None:
    bmc = start({"filtered": ["redfish", "cim-https"]})

    assert {name: answers(bmc, port) for name, port in ports(bmc).items()} == {
        "redfish": "is silent", "cim": "listens", "cim-https": "is silent"}


def test_closed_ports_stay_taken(start: Starter) -> None:
    bmc = start({"closed": ["redfish", "ipmi"]})
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other, pytest.raises(OSError):
        other.bind((bmc.address, bmc.ready["ipmi"]["port"]))
    with socket.socket() as other, pytest.raises(OSError):
        other.bind((bmc.address, bmc.port))


def test_an_unknown_service_is_an_error(start: Starter) -> None:
    file = start.scenario_file("closed: [redfsh]\n")
    done = outcome("--scenario", str(file))

    assert done.returncode == 2
    assert done.stderr == (f"emulated-bmc: {file}:1: closed[0]: unknown value 'redfsh'; "
                           "allowed: redfish, cim, cim-https, ipmi\n")
