# SPDX-License-Identifier: Apache-2.0
"""Start and end: the ready line, addresses, certificate, and that nothing outlives its owner."""

from __future__ import annotations

import hashlib
import ipaddress
import signal
import socket
import ssl
import subprocess
import time
from pathlib import Path

import pytest
from cryptography import x509
from cryptography.hazmat.primitives.asymmetric import ec

from conftest import EXPORT, FULL_EXPORT, PROGRAM, ROOT, Bmc, Starter, clean_environment, outcome


def test_the_ready_line_tells_everything(bmc: Bmc) -> None:
    ready = bmc.ready

    assert ready["schema"] == 1
    assert (ready["address"], ready["user"]) == ("127.0.0.1", "admin")
    assert len(ready["password"]) >= 8
    assert set(ready["redfish"]) >= {"port", "certificate", "sha256"}
    assert set(ready["archive"]) >= {"name", "size", "sha256"}
    assert ready["archive"]["name"].endswith(".tar.gz")
    assert Path(ready["requests"]).exists()


def test_the_certificate_is_the_one_that_is_served_and_names_its_addresses(bmc: Bmc) -> None:
    pem = Path(bmc.ready["redfish"]["certificate"]).read_bytes()
    certificate = x509.load_pem_x509_certificate(pem)
    served = ssl.PEM_cert_to_DER_cert(ssl.get_server_certificate((bmc.address, bmc.port)))

    assert hashlib.sha256(served).hexdigest() == bmc.ready["redfish"]["sha256"]
    assert served == ssl.PEM_cert_to_DER_cert(pem.decode())
    assert isinstance(certificate.public_key(), ec.EllipticCurvePublicKey)
    names = certificate.extensions.get_extension_for_class(x509.SubjectAlternativeName).value
    assert names.get_values_for_type(x509.DNSName) == ["localhost"]
    assert ipaddress.ip_address("127.0.0.1") in names.get_values_for_type(x509.IPAddress)


def test_a_client_that_trusts_the_certificate_can_verify_it(bmc: Bmc) -> None:
    context = ssl.create_default_context(cafile=bmc.ready["redfish"]["certificate"])
    with socket.create_connection((bmc.address, bmc.port), timeout=10) as raw:
        with context.wrap_socket(raw, server_hostname=bmc.address) as tls:
            assert tls.version() in ("TLSv1.2", "TLSv1.3")


def shown_by(bmc: Bmc, port: int | None = None) -> str:
    """The fingerprint of the certificate that a new connection meets."""
    shown = ssl.get_server_certificate((bmc.address, port or bmc.port))
    return hashlib.sha256(ssl.PEM_cert_to_DER_cert(shown)).hexdigest()


def test_a_restart_shows_the_certificate_of_the_folder_again(start: Starter, tmp_path: Path) -> None:
    folder = str(tmp_path / "state")
    first = start(None, "--state-dir", folder)
    first.stop()
    again = start(None, "--state-dir", folder)

    assert shown_by(again) == again.ready["redfish"]["sha256"] == first.ready["redfish"]["sha256"]


def test_unless_a_new_one_is_wanted(start: Starter, tmp_path: Path) -> None:
    folder = str(tmp_path / "state")
    first = start(None, "--state-dir", folder)
    first.stop()
    again = start(None, "--state-dir", folder, "--new-certificate")

    assert shown_by(again) == again.ready["redfish"]["sha256"] != first.ready["redfish"]["sha256"]


@pytest.mark.parametrize("spoil", ["key.pem", "cert.pem"])
def test_a_certificate_that_cannot_be_used_again_is_made_anew(start: Starter, tmp_path: Path, spoil: str) -> None:
    folder = tmp_path / "state"
    first = start(None, "--state-dir", str(folder))
    first.stop()
    (folder / spoil).write_text("no longer")
    again = start(None, "--state-dir", str(folder))

    assert shown_by(again) != first.ready["redfish"]["sha256"]


def test_a_certificate_of_ones_own_is_shown(start: Starter, tmp_path: Path) -> None:
    other = start(None, "--state-dir", str(tmp_path / "other"))
    file = tmp_path / "own.pem"
    file.write_bytes((tmp_path / "other" / "cert.pem").read_bytes() + (tmp_path / "other" / "key.pem").read_bytes())
    bmc = start(None, "--certificate", str(file))

    assert shown_by(bmc) == other.ready["redfish"]["sha256"]
    assert shown_by(bmc, bmc.ready["cim"]["https_port"]) == other.ready["redfish"]["sha256"]


def test_a_file_without_a_key_is_no_certificate(bmc: Bmc) -> None:
    file = bmc.ready["redfish"]["certificate"]
    done = outcome("--certificate", file)

    assert done.returncode == 2 and len(done.stderr.splitlines()) == 1
    assert done.stderr.startswith(f"emulated-bmc: {file}: no certificate with its key in PEM: ")


def test_the_certificate_can_change_between_two_connections(start: Starter) -> None:
    bmc = start({"certificate_changes_after": 2})
    first, later = bmc.ready["redfish"]["sha256"], bmc.ready["redfish"]["later"]["sha256"]
    secure_cim = bmc.ready["cim"]["https_port"]

    assert [shown_by(bmc) for _ in range(4)] == [first, first, later, later]
    assert [shown_by(bmc, secure_cim) for _ in range(3)] == [first, first, later]  # each server counts its own
    assert first != later


@pytest.mark.parametrize("address", ["::1", "127.0.0.2"])
def test_it_binds_where_it_is_told(start: Starter, address: str) -> None:
    bmc = start(None, "--bind", address)

    assert bmc.ready["address"] == address
    assert bmc.get(ROOT).status == 200
    context = ssl.create_default_context(cafile=bmc.ready["redfish"]["certificate"])
    with socket.create_connection((address, bmc.port), timeout=10) as raw:
        context.wrap_socket(raw, server_hostname=address).close()


def test_it_takes_the_port_that_it_is_told(start: Starter) -> None:
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]

    assert start(None, "--redfish-port", str(port)).port == port


def test_a_port_that_is_taken_is_said(bmc: Bmc) -> None:
    done = outcome("--redfish-port", str(bmc.port))

    assert done.returncode == 1 and done.stdout == ""
    assert len(done.stderr.splitlines()) == 1 and "already in use" in done.stderr


def test_plain_http_on_the_port(start: Starter) -> None:
    bmc = start(None, "--redfish-plain")

    assert bmc.ready["redfish"]["scheme"] == "http"
    assert bmc.get(ROOT).status == 200
    with pytest.raises(ssl.SSLError):
        ssl.get_server_certificate((bmc.address, bmc.port))
    assert bmc.get(ROOT).status == 200


SOON = 5  # seconds, on a busy machine; what it must not wait for takes a minute or for ever


def wait_for_end(bmc: Bmc) -> float:
    began = time.monotonic()
    assert bmc.process.wait(timeout=10) == 0
    return time.monotonic() - began


def test_it_ends_when_its_input_closes(start_program: Starter) -> None:
    bmc = start_program()
    bmc.close_input()

    assert wait_for_end(bmc) < SOON


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_it_ends_at_a_signal_and_leaves_nothing(start_program: Starter, number: int) -> None:
    bmc = start_program()
    bmc.process.send_signal(number)

    assert wait_for_end(bmc) < SOON
    assert not Path(bmc.ready["requests"]).parent.exists()


@pytest.mark.parametrize("answer", [{"hang": True}, {"delay": 60}, {"fill": 1 << 30}, {"fill": 9, "rate": 1},
                                    {"fill": 9, "hang_after": 2}], ids=str)
def test_it_ends_in_the_middle_of_an_answer(start: Starter, answer: dict) -> None:
    bmc = start.answers({"GET /redfish/v1/": [answer]})
    connection = bmc.connect()
    connection.request("GET", ROOT)
    deadline = time.monotonic() + 5
    while not bmc.requests() and time.monotonic() < deadline:
        time.sleep(0.01)
    bmc.close_input()

    assert wait_for_end(bmc) < SOON
    connection.close()


def test_it_ends_in_the_middle_of_a_download_that_nobody_reads(start: Starter) -> None:
    bmc = start({"redfish": {"archive": {"size": 64 << 20}}})
    connection = bmc.connect()
    connection.request("GET", bmc.archive["path"], headers=bmc.basic())
    connection.getresponse().read(1000)
    bmc.process.send_signal(signal.SIGTERM)

    assert wait_for_end(bmc) < SOON
    connection.close()


def test_it_ends_while_it_still_makes_its_archive(start: Starter, tmp_path: Path) -> None:
    file = start.scenario_file({"redfish": {"archive": {"size": 1 << 30}}})
    folder = tmp_path / "temporary"
    folder.mkdir()
    process = subprocess.Popen(
        [str(PROGRAM), "--scenario", str(file)],
        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
        env={**clean_environment(), "TMPDIR": str(folder)},
    )
    deadline = time.monotonic() + 10
    while not list(folder.glob("*/archives/*")) and time.monotonic() < deadline:
        time.sleep(0.01)
    process.stdin.close()
    began = time.monotonic()

    assert process.wait(timeout=10) == 0
    assert time.monotonic() - began < SOON
    assert (process.stdout.read(), process.stderr.read()) == (b"", b"")
    assert list(folder.iterdir()) == []


def test_it_ends_whenever_its_input_closes_while_it_starts(tmp_path: Path) -> None:
    for delay in [n / 100 for n in range(0, 60, 4)]:
        process = subprocess.Popen(
            [str(PROGRAM)], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            env={**clean_environment(), "TMPDIR": str(tmp_path)},
        )
        time.sleep(delay)
        process.stdin.close()

        assert process.wait(timeout=20) == 0
        assert process.stderr.read() == b""
        assert list(tmp_path.iterdir()) == []


def test_a_state_folder_that_cannot_be_made_is_said(tmp_path: Path) -> None:
    (tmp_path / "file").write_text("")
    done = outcome("--state-dir", str(tmp_path / "file" / "x"))

    assert done.returncode == 1 and "Not a directory" in done.stderr and len(done.stderr.splitlines()) == 1


def test_its_uploads_end_with_it(start: Starter) -> None:
    with socket.socket() as silent:  # a server that accepts and then says nothing
        silent.bind(("127.0.0.1", 0))
        silent.listen(1)
        bmc = start()
        uri = f"sftp://127.0.0.1:{silent.getsockname()[1]}/x"
        bmc.post(EXPORT, {**FULL_EXPORT, "ExportURI": uri, "Username": "u", "Password": "p"})
        silent.settimeout(10)
        peer, _ = silent.accept()
        bmc.close_input()

        assert wait_for_end(bmc) < SOON
        peer.settimeout(5)
        try:
            while peer.recv(4096):
                pass  # the greeting; then the end, because curl is gone
        except ConnectionError:
            pass
        peer.close()


@pytest.mark.parametrize("arguments, expected", [
    (["--redfish-port", "70000"], "'70000' is no port (0 to 65535)"),
    (["--bind", "localhost"], "'localhost' is no IPv4 or IPv6 address"),
    (["--nonsense"], "unrecognized arguments: --nonsense"),
])
def test_wrong_options_are_refused(arguments: list[str], expected: str) -> None:
    done = outcome(*arguments)

    assert done.returncode == 2 and expected in done.stderr
