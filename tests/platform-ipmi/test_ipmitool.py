# SPDX-License-Identifier: Apache-2.0
"""A stranger's client against the emulated BMC: whether it is a BMC for others, too."""

from __future__ import annotations

import shutil
import subprocess
from typing import Any

import pytest

pytestmark = pytest.mark.skipif(shutil.which("ipmitool") is None, reason="ipmitool is not installed")

ACCOUNT = ("admin", "secret")


def ipmitool(bmc: Any, suite: int | None, *words: str, account: tuple[str, str] = ACCOUNT) -> Any:
    command = ["ipmitool", "-I", "lanplus", "-N", "1", "-R", "2", "-H", bmc.address,
               "-p", bmc.port, "-U", account[0], "-P", account[1]]
    if suite is not None:
        command += ["-C", str(suite)]
    return subprocess.run([*command, *words], capture_output=True, text=True, timeout=60)


def oem_requests(bmc: Any) -> list[tuple[int, int, str, int, int]]:
    return [
        (line["netfn"], line["command"], line["data"], line["cipher_suite"], line["completion_code"])
        for line in bmc.requests() if line.get("netfn") == 0x3A
    ]


@pytest.mark.parametrize("address", ["127.0.0.1", "::1"])
@pytest.mark.parametrize("suite", [3, 17])
def test_raw_oem_commands_run_at_both_cipher_suites(start_bmc, suite, address):
    bmc = start_bmc({"polls": 1, "credential": {"user": "root", "password": "abc"}}, address)

    answers = [
        ipmitool(bmc, suite, "raw", "0x3a", command, "0x01")
        for command in ("0x49", "0x4d", "0x4d", "0x79")
    ]

    assert [answer.returncode for answer in answers] == [0, 0, 0, 0]
    assert [answer.stdout.split() for answer in answers] == [
        [], ["00"], ["01"], ["04", "72", "6f", "6f", "74", "03", "61", "62", "63"]
    ]
    assert oem_requests(bmc) == [
        (0x3A, 0x49, "01", suite, 0), (0x3A, 0x4D, "01", suite, 0),
        (0x3A, 0x4D, "01", suite, 0), (0x3A, 0x79, "01", suite, 0),
    ]


def test_without_a_wish_the_best_suite_that_is_offered_is_taken(start_bmc):
    bmc = start_bmc()
    only_old = start_bmc({"cipher_suites": [3]})

    assert ipmitool(bmc, None, "raw", "0x3a", "0x4d", "0x01").returncode == 0
    assert ipmitool(only_old, None, "raw", "0x3a", "0x4d", "0x01").returncode == 0

    assert [request[3] for request in oem_requests(bmc)] == [17]
    assert [request[3] for request in oem_requests(only_old)] == [3]


@pytest.mark.parametrize("code, words", [
    (0xC1, "Invalid command"),
    (0xD4, "Insufficient privilege level"),
    (0xFF, "Unspecified error"),
])
def test_completion_codes_come_through(start_bmc, code, words):
    bmc = start_bmc({"answers": {"poll": [{"code": code}]}})

    answer = ipmitool(bmc, 17, "raw", "0x3a", "0x4d", "0x01")

    assert answer.returncode == 1
    assert f"rsp=0x{code:x}): {words}" in answer.stderr


def test_device_id_is_one_of_ipmi_2(start_bmc):
    answer = ipmitool(start_bmc(), 17, "mc", "info")

    assert answer.returncode == 0
    assert "IPMI Version              : 2.0" in answer.stdout


@pytest.mark.parametrize("suite", [3, 17])
@pytest.mark.parametrize("account", [("admin", "wrong"), ("nobody", "secret")])
def test_wrong_accounts_get_no_session(start_bmc, suite, account):
    bmc = start_bmc()

    answer = ipmitool(bmc, suite, "raw", "0x3a", "0x4d", "0x01", account=account)

    assert answer.returncode == 1
    assert "Unable to establish IPMI v2 / RMCP+ session" in answer.stderr
    assert oem_requests(bmc) == []


def test_suite_that_is_not_offered_is_refused(start_bmc):
    bmc = start_bmc({"cipher_suites": [17]})

    answer = ipmitool(bmc, 3, "raw", "0x3a", "0x4d", "0x01")

    assert answer.returncode == 1
    assert "no matching cipher suite" in answer.stderr
