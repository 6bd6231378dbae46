# SPDX-License-Identifier: Apache-2.0
"""ExportData: what it takes, what it returns, and that the archive really arrives."""

from __future__ import annotations

import contextlib
import hashlib
import socket
import tarfile
import threading
import time
import urllib.parse
from pathlib import Path
from typing import Any, Iterator

import pytest

import stores
from cim_client import (
    CimReply, Wire, basic, cim_requests, enumeration, exchange, export_parameters, invocation,
    parameter, reference, value,
)
from conftest import Bmc, Starter
from test_upload import PASSWORD, USER, SftpStore, assert_curl_shows_nothing, store  # noqa: F401

OK = ("uint32", "0")


@pytest.fixture(scope="module")
def quiet(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Bmc]:
    """A BMC that takes exports and uploads nothing."""
    starter = Starter(tmp_path_factory.mktemp("quiet"))
    yield starter({"cim": {"export": {"upload": False}}})
    starter.stop_all()


def export(bmc: Bmc, uri: str, user: str = USER, password: str = PASSWORD, which: int = 1, **more: Any) -> CimReply:
    keys = list(bmc.ready["cim"]["archives"])
    parameters = export_parameters(uri, user, password, keys[which - 1])
    return exchange(bmc, invocation(parameters, basic(bmc)), **more)


def archive(bmc: Bmc, which: int = 1) -> dict[str, Any]:
    return list(bmc.ready["cim"]["archives"].values())[which - 1]


def content(bmc: Bmc, which: int = 1) -> bytes:
    data = Path(archive(bmc, which)["file"]).read_bytes()
    assert hashlib.sha256(data).hexdigest() == archive(bmc, which)["sha256"]
    return data


# --- uploads --------------------------------------------------------------------------------


@pytest.mark.parametrize("tls", [False, True], ids=["plain", "tls"])
def test_an_sftp_folder_receives_each_archive_under_its_own_name(
    start: Starter, store: SftpStore, tls: bool  # noqa: F811
) -> None:
    (store.folder / "in").mkdir()
    bmc = start()
    for which in (1, 2, 3):
        assert export(bmc, f"sftp://127.0.0.1:{store.port}/in/", which=which, tls=tls).returned() == OK

    received = {file.name: file.read_bytes() for file in (store.folder / "in").iterdir()}
    assert received == {archive(bmc, n)["name"]: content(bmc, n) for n in (1, 2, 3)}
    assert len(set(received.values())) == 3


def test_the_root_of_a_store_is_a_folder_with_and_without_its_slash(
    start: Starter, store: SftpStore  # noqa: F811
) -> None:
    bmc = start()
    for end in ("", "/"):
        assert export(bmc, f"sftp://127.0.0.1:{store.port}{end}").returned() == OK
        arrived = store.folder / archive(bmc)["name"]
        assert arrived.read_bytes() == content(bmc)
        arrived.unlink()


def test_a_file_uri_is_labelled_so_that_no_archive_overwrites_another(
    start: Starter, store: SftpStore  # noqa: F811
) -> None:
    bmc = start()
    for which in (1, 2):
        assert export(bmc, f"sftp://127.0.0.1:{store.port}/dump.tar.gz", which=which).returned() == OK

    received = {file.name: file.read_bytes() for file in store.folder.iterdir()}
    assert received == {"dump_1.tar.gz": content(bmc, 1), "dump_2.tar.gz": content(bmc, 2)}


def test_a_file_uri_is_taken_as_it_is_where_only_one_object_is_exported(
    start: Starter, store: SftpStore  # noqa: F811
) -> None:
    bmc = start({"cim": {"data": [1, 4]}})

    assert export(bmc, f"sftp://127.0.0.1:{store.port}/dump.tar.gz").returned() == OK
    assert (store.folder / "dump.tar.gz").read_bytes() == content(bmc)
    assert len(list(store.folder.iterdir())) == 1


def test_a_large_archive_arrives_whole(start: Starter, store: SftpStore) -> None:  # noqa: F811
    bmc = start({"cim": {"archive": {"size": 8 * 1024 * 1024}}})

    assert export(bmc, f"sftp://127.0.0.1:{store.port}/").returned() == OK
    assert abs(archive(bmc)["size"] - 8 * 1024 * 1024) < 64 * 1024
    assert (store.folder / archive(bmc)["name"]).read_bytes() == content(bmc)


def test_openssh_receives_the_archive(start: Starter, tmp_path: Path) -> None:
    with stores.sshd(tmp_path, USER, PASSWORD) as port:
        bmc = start()
        folder = urllib.parse.quote(str(tmp_path / "home"))
        reply = export(bmc, f"sftp://127.0.0.1:{port}{folder}/")
        refused = export(bmc, f"sftp://127.0.0.1:{port}{folder}/", password="wrong")

    assert reply.returned() == OK, (tmp_path / "sshd.log").read_text()
    assert refused.returned() == ("uint32", "4")
    arrived = {file.name: file.read_bytes() for file in (tmp_path / "home").iterdir()}
    assert arrived == {archive(bmc)["name"]: content(bmc)}


def test_a_tftp_store_receives_each_archive(start: Starter, tmp_path: Path) -> None:
    folder = tmp_path / "tftp"
    folder.mkdir()
    with stores.atftpd(folder, tmp_path / "log") as port:
        bmc = start()
        for which in (1, 2):
            reply = export(bmc, f"tftp://127.0.0.1:{port}/ffdc", user="", password="", which=which)
            assert reply.returned() == OK, (tmp_path / "log").read_text()

    arrived = {file.name: file.read_bytes() for file in folder.iterdir()}
    assert arrived == {"ffdc_1": content(bmc, 1), "ffdc_2": content(bmc, 2)}


def test_archives_unpack_and_name_their_object(start: Starter) -> None:
    bmc = start({"cim": {"data": [{"type": 3, "id": 'a "b" <&> é'}]}})
    with tarfile.open(archive(bmc)["file"]) as tar:
        manifest = tar.extractfile("ffdc/manifest.json").read().decode()

    assert '"DataCollectionType": "3"' in manifest
    assert 'a \\"b\\" <&> \\u00e9' in manifest


# --- uploads that fail ----------------------------------------------------------------------


def test_a_wrong_password_of_the_store_returns_failed(start: Starter, store: SftpStore) -> None:  # noqa: F811
    assert export(start(), f"sftp://127.0.0.1:{store.port}/x", password="no").returned() == ("uint32", "4")


def test_a_store_that_is_not_there_returns_failed(start: Starter) -> None:
    port = stores.free_port(socket.SOCK_STREAM)
    assert export(start(), f"sftp://127.0.0.1:{port}/x").returned() == ("uint32", "4")


def test_a_store_that_stays_silent_returns_timeout(start: Starter) -> None:
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as silent:
        silent.bind(("127.0.0.1", 0))
        reply = export(start(), f"tftp://127.0.0.1:{silent.getsockname()[1]}/x", user="", password="")
    assert reply.returned() == ("uint32", "3")


@pytest.mark.parametrize("uri", ["https://127.0.0.1/x", "file:///etc/x", "", "sftp://", "ftp://h/x", "/tmp/x"])
def test_a_uri_that_names_no_store_returns_invalid_parameter(start: Starter, uri: str) -> None:
    assert export(start(), uri).returned() == ("uint32", "5")


def test_a_second_export_at_the_same_time_returns_in_use(start: Starter) -> None:
    bmc = start({"cim": {"export": {"seconds": 1.0, "upload": False}}})
    first = threading.Thread(target=export, args=(bmc, "sftp://h/"))
    first.start()
    deadline = time.monotonic() + 10
    while not cim_requests(bmc) and time.monotonic() < deadline:
        time.sleep(0.01)
    time.sleep(0.1)

    assert export(bmc, "sftp://h/").returned() == ("uint32", "6")
    first.join(10)
    assert export(bmc, "sftp://h/").returned() == OK


def test_target_and_credentials_never_stand_in_the_process_list(start: Starter) -> None:
    with socket.socket() as silent:
        silent.bind(("127.0.0.1", 0))
        silent.listen(1)
        silent.settimeout(10)
        bmc = start()
        uri = f"sftp://127.0.0.1:{silent.getsockname()[1]}/x"
        running = threading.Thread(target=lambda: export(bmc, uri))
        running.start()
        accepted, _ = silent.accept()
        assert_curl_shows_nothing(bmc)
        accepted.close()
        running.join(10)


def test_a_role_that_only_reads_may_not_export(start: Starter) -> None:
    bmc = start({"role": "ReadOnly"})
    reply = exchange(bmc, invocation(export_parameters("sftp://h/"), basic(bmc)))

    assert reply.error() == (2, "CIM_ERR_ACCESS_DENIED: ExportData")


# --- parameters -----------------------------------------------------------------------------


def without(name: str) -> list[str]:
    return [one for one in export_parameters("sftp://h/", "u", "p") if f'NAME="{name}" ' not in one]


def replaced(name: str, type_: str | None, inner: str) -> list[str]:
    return [*without(name), parameter(name, type_, inner)]


def ask(bmc: Bmc, parameters: list[str], **more: Any) -> CimReply:
    return exchange(bmc, invocation(parameters, basic(bmc), **more))


@pytest.mark.parametrize("parameters", [
    pytest.param(without("Username"), id="no user"),
    pytest.param(without("Password"), id="no password"),
    pytest.param(replaced("Username", "string", ""), id="null user"),
    pytest.param(replaced("InitializationNeeded", None, value("true")), id="untyped boolean"),
    pytest.param(replaced("InitializationNeeded", "boolean", value("FALSE")), id="false"),
    pytest.param(replaced("ExportURI", None, value("sftp://h/")), id="untyped string"),
    pytest.param(replaced("DataCollectionType", None, reference("ZOR:FFDC:2:2")), id="untyped reference"),
    pytest.param(export_parameters("sftp://h/")[::-1], id="another order"),
])
def test_parameters_are_taken(quiet: Bmc, parameters: list[str]) -> None:
    assert ask(quiet, parameters).returned() == OK


@pytest.mark.parametrize("parameters, about", [
    pytest.param(without("InitializationNeeded"), "InitializationNeeded", id="no boolean"),
    pytest.param(without("ExportURI"), "ExportURI", id="no URI"),
    pytest.param(without("DataCollectionType"), "DataCollectionType", id="no object"),
    pytest.param(replaced("ExportURI", "string", ""), "ExportURI", id="null URI"),
    pytest.param([*without(""), parameter("Bogus", "string", value("x"))], "Bogus", id="unknown"),
    pytest.param(export_parameters("sftp://h/") * 2, "InitializationNeeded", id="twice"),
    pytest.param(replaced("InitializationNeeded", "string", value("TRUE")), "InitializationNeeded", id="string"),
    pytest.param(replaced("InitializationNeeded", "boolean", value("yes")), "InitializationNeeded", id="yes"),
    pytest.param(replaced("ExportURI", "uint32", value("1")), "ExportURI", id="number"),
    pytest.param(replaced("ExportURI", "string", "<VALUE.ARRAY><VALUE>x</VALUE></VALUE.ARRAY>"), "ExportURI",
                 id="array"),
    pytest.param(replaced("DataCollectionType", "string", value("1")), "DataCollectionType", id="text"),
    pytest.param(
        replaced("DataCollectionType", "reference",
                 reference("x").replace("ZOR_FFDCData", "ZOR_FFDCService")), "DataCollectionType",
        id="another class"),
    pytest.param(replaced("Password", "string", "<VALUE>a&#0;b</VALUE>"), "Password", id="zero byte"),
])
def test_parameters_are_refused(quiet: Bmc, parameters: list[str], about: str) -> None:
    assert ask(quiet, parameters).error() == (4, f"CIM_ERR_INVALID_PARAMETER: {about}")


def test_an_object_that_is_not_there_is_not_found(quiet: Bmc) -> None:
    reply = ask(quiet, replaced("DataCollectionType", "reference", reference("nobody")))
    assert reply.error() == (6, 'CIM_ERR_NOT_FOUND: ZOR_FFDCData.InstanceID="nobody"')

    reply = ask(quiet, export_parameters("sftp://h/"), keys={"Name": "another"})
    assert reply.error() == (6, 'CIM_ERR_NOT_FOUND: ZOR_FFDCService.Name="another"')


def test_a_method_of_another_object_is_not_available(quiet: Bmc) -> None:
    keys = {"InstanceID": "ZOR:FFDC:1:1"}
    reply = ask(quiet, [], class_name="ZOR_FFDCData", keys=keys)
    assert reply.error() == (16, "CIM_ERR_METHOD_NOT_AVAILABLE: ExportData")


def test_an_object_with_quotes_and_other_letters_is_found(start: Starter) -> None:
    name = ' "mini" <&> back\\slash é € \t'
    bmc = start({"cim": {"data": [{"type": 1, "id": name}], "export": {"upload": False}}})

    assert export(bmc, "sftp://h/").returned() == OK
    listed = exchange(bmc, enumeration(headers=basic(bmc))).instances()
    assert [one["InstanceID"] for one in listed] == [name]


def test_requests_are_recorded_as_they_came(start: Starter) -> None:
    bmc = start({"cim": {"export": {"upload": False}}})
    asked = invocation(export_parameters("sftp://h/", "us<er", "p'w"), basic(bmc))
    with contextlib.ExitStack() as stack:
        wire = stack.enter_context(Wire(bmc, tls=True))
        wire.ask(asked)
        wire.ask(asked)

    first, second = cim_requests(bmc)
    assert (first["method"], first["path"], first["version"], first["tls"]) == ("POST", "/cimom", "HTTP/1.1", True)
    assert first["headers"]["CIMMethod"] == "ExportData"
    assert first["body"].encode() == asked.partition(b"\r\n\r\n")[2]
    assert first["connection"] == second["connection"]
