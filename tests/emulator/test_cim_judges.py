# SPDX-License-Identifier: Apache-2.0
"""A stranger's CIM client, wbemcli, reads the BMC and makes it export."""

from __future__ import annotations

import shutil
import subprocess
from pathlib import Path
from typing import Iterator

import pytest

import test_upload
from conftest import Bmc, Starter, clean_environment
from test_upload import USER, SftpStore, store  # noqa: F401

SERVICE = (
    'ZOR_FFDCService.SystemCreationClassName="ZOR_ComputerSystem",SystemName="kem",'
    'CreationClassName="ZOR_FFDCService",Name="FFDC"'
)
NAMES = {
    'ZOR_FFDCData.InstanceID="ZOR:FFDC:1:1"',
    'ZOR_FFDCData.InstanceID="ZOR:FFDC:2:2"',
    'ZOR_FFDCData.InstanceID="ZOR:FFDC:3:4"',
}

pytestmark = pytest.mark.skipif(not shutil.which("wbemcli"), reason="wbemcli is not installed")


@pytest.fixture(scope="module")
def judged(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Bmc]:
    starter = Starter(tmp_path_factory.mktemp("judged"))
    yield starter()
    starter.stop_all()


def wbemcli(
    bmc: Bmc, scheme: str, operation: str, path: str, *more: str, password: str | None = None
) -> subprocess.CompletedProcess:
    ports = bmc.ready["cim"]
    port = ports["port"] if scheme == "http" else ports["https_port"]
    url = f"{scheme}://{bmc.user}:{password or bmc.password}@127.0.0.1:{port}/{path}"
    options = ["-noverify"] if scheme == "https" else []
    return subprocess.run(
        ["wbemcli", "-nl", *options, operation, url, *more],
        capture_output=True, text=True, timeout=60, env=clean_environment(),
    )


def lines(result: subprocess.CompletedProcess) -> list[str]:
    assert result.returncode == 0, result.stderr
    return [line for line in result.stdout.splitlines() if line.strip()]


both = pytest.mark.parametrize("scheme", ["http", "https"])


@both
def test_it_finds_the_names_of_the_data_objects(judged: Bmc, scheme: str) -> None:
    found = lines(wbemcli(judged, scheme, "ein", "root/cimv2:ZOR_FFDCData"))

    assert {line.partition(":ZOR")[2] for line in found} == {name[3:] for name in NAMES}


@both
def test_it_reads_the_data_objects(judged: Bmc, scheme: str) -> None:
    found = lines(wbemcli(judged, scheme, "ei", "root/cimv2:ZOR_FFDCData"))

    assert [line for line in found if "DataCollectionType" in line] == [
        f"-DataCollectionType={n}" for n in (1, 2, 4)]
    assert found.count("-OperationalStatus=2,32768") == 3


def test_it_reads_one_object_and_the_classes(judged: Bmc) -> None:
    one = lines(wbemcli(judged, "http", "gi", f"zor/kem2/cimv2:{SERVICE}"))
    service = lines(wbemcli(judged, "http", "gc", "root/cimv2:ZOR_FFDCService"))
    data = lines(wbemcli(judged, "http", "gc", "root/cimv2:ZOR_FFDCData"))
    names = lines(wbemcli(judged, "http", "ecn", "root/cimv2"))

    assert '-ElementName="Service data <export> & \\"upload\\""' in one
    assert "-EnabledState=" in service[1:]
    assert "-DataCollectionType=" in data[1:]
    assert {name.rpartition(":")[2] for name in names} == {"ZOR_FFDCService", "ZOR_FFDCData"}


def test_it_lists_classes_with_their_properties(judged: Bmc) -> None:
    data = lines(wbemcli(judged, "http", "ec", "root/cimv2"))
    interop = lines(wbemcli(judged, "http", "ec", "interop"))

    assert [line.rpartition(":")[0].rpartition(":")[2].strip() for line in data if line[0] != "-"] == [
        "ZOR_FFDCService", "ZOR_FFDCData"]
    assert data.count("-ElementName=") == 2 and "-DataCollectionType=" in data
    assert [line.rpartition(":")[0].rpartition(":")[2].strip() for line in interop if line[0] != "-"] == [
        "CIM_ObjectManager", "CIM_Namespace", "CIM_RegisteredProfile"]


@both
def test_it_learns_from_the_interop_namespace_who_serves_what(judged: Bmc, scheme: str) -> None:
    manager = lines(wbemcli(judged, scheme, "ei", "interop:CIM_ObjectManager"))
    namespaces = lines(wbemcli(judged, scheme, "ei", "interop:CIM_Namespace"))
    profiles = lines(wbemcli(judged, scheme, "ei", "interop:CIM_RegisteredProfile"))

    assert manager[1:] == [
        '-SystemCreationClassName="CIM_ComputerSystem"', '-SystemName="kem"', '-CreationClassName="CIM_ObjectManager"',
        '-Name="Tavrin:CIM"', '-ElementName="Tavrin CIM Server"', '-Description="Tavrin CIM Server Version 4.20.1183"',
        '-Version="4.20.1183"', "-Started=TRUE",
    ]
    assert [line for line in namespaces if line.startswith("-Name=")] == [
        f'-Name="{name}"' for name in ("root/cimv2", *(f"zor/kem{n}/cimv2" for n in range(1, 5)), "interop")]
    assert profiles[1:] == [
        '-InstanceID="ZOR:ServiceData:1.0.0"', "-RegisteredOrganization=1", '-OtherRegisteredOrganization="Tavrin"',
        '-RegisteredName="Service Data"', '-RegisteredVersion="1.0.0"', "-AdvertiseTypes=2",
    ]


@both
def test_it_makes_the_bmc_export(
    start: Starter, store: SftpStore, scheme: str, monkeypatch: pytest.MonkeyPatch  # noqa: F811
) -> None:
    monkeypatch.setattr(test_upload, "PASSWORD", "one word")  # it escapes nothing
    bmc = start()
    key = "ZOR:FFDC:2:2"
    result = wbemcli(
        bmc, scheme, "cm", f"root/cimv2:{SERVICE}",
        f'ExportData.InitializationNeeded=true,ExportURI="sftp://127.0.0.1:{store.port}/",'
        f'Username="{USER}",Password="one word",DataCollectionType=ZOR_FFDCData.InstanceID="{key}"',
    )

    assert lines(result)[-1].endswith("ExportData: 0"), result.stdout
    archive = bmc.ready["cim"]["archives"][key]
    assert (store.folder / archive["name"]).read_bytes() == Path(archive["file"]).read_bytes()


@both
@pytest.mark.parametrize("path, said", [
    ("root/cimv2:ZOR_NoSuch", "(5) CIM_ERR_INVALID_CLASS: ZOR_NoSuch"),
    ("zor/kem9/cimv2:ZOR_FFDCData", "(3) CIM_ERR_INVALID_NAMESPACE: zor/kem9/cimv2"),
])
def test_it_is_told_what_is_wrong(judged: Bmc, scheme: str, path: str, said: str) -> None:
    result = wbemcli(judged, scheme, "ein", path)

    assert result.returncode != 0
    assert said in result.stderr


@both
def test_it_is_refused_with_a_wrong_password(judged: Bmc, scheme: str) -> None:
    result = wbemcli(judged, scheme, "ein", "root/cimv2:ZOR_FFDCData", password="wrong")

    assert result.returncode != 0
    assert "Invalid username/password" in result.stderr


def test_it_sees_what_a_scenario_raises_and_returns(start: Starter) -> None:
    bmc = start({"cim": {"answers": {"ExportData": [{"error": {"code": 1, "text": "disk full"}}, {"return": 3}]}}})
    call = ("http", "cm", f"root/cimv2:{SERVICE}", "ExportData.InitializationNeeded=true")

    assert "(1) CIM_ERR_FAILED: disk full" in wbemcli(bmc, *call).stderr
    assert lines(wbemcli(bmc, *call))[-1].endswith("ExportData: 3")
