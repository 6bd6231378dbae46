# SPDX-License-Identifier: Apache-2.0
"""The BMC's certificate: self-signed, made at the first start, as factories ship them, or one that is given."""

from __future__ import annotations

import datetime
import ipaddress
import os
import ssl
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.hazmat.primitives.asymmetric import ec
from cryptography.x509.oid import ExtendedKeyUsageOID, NameOID

from bmc.scenario import Checker


def read_change(check: Checker, value: Any) -> int | None:
    """Reads `certificate_changes_after`: connections, for each server; None: it stays."""
    return None if value is None else check.whole(value, ("certificate_changes_after",), 0, 1 << 31)


class CertificateError(Exception):
    """A file that is given holds no certificate with its key."""


@dataclass(frozen=True)
class Certificate:
    """Files in PEM, and the SHA-256 fingerprint in lower-case hex."""

    path: Path
    key_path: Path
    sha256: str
    changes_after: int | None = None  # connections to a server
    later: "Certificate | None" = None  # what is shown then

    def server_context(self, newest: ssl.TLSVersion = ssl.TLSVersion.MAXIMUM_SUPPORTED) -> ssl.SSLContext:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.minimum_version = ssl.TLSVersion.TLSv1_2
        context.maximum_version = newest
        context.set_alpn_protocols(["http/1.1"])
        context.load_cert_chain(self.path, self.key_path)
        if self.later is not None:
            _change_after(context, self.changes_after or 0, self.later.server_context(newest))
        return context


def _change_after(context: ssl.SSLContext, connections: int, later: ssl.SSLContext) -> None:
    """The first connections see the context's own certificate, all others the later one's."""
    seen = 0

    def choose(connection: ssl.SSLObject, _name: str | None, _context: ssl.SSLContext) -> None:
        nonlocal seen
        if seen >= connections:
            connection.context = later
        seen += 1

    context.sni_callback = choose  # called for each connection, also where no name is sent


def given_certificate(file: Path) -> Certificate:
    """One file with certificate (or chain) and key, as other programs want it too."""
    try:
        shown = x509.load_pem_x509_certificate(file.read_bytes())
        certificate = Certificate(file, file, shown.fingerprint(hashes.SHA256()).hex())
        certificate.server_context()
    except (OSError, ValueError) as error:  # SSLError is an OSError
        raise CertificateError(f"{file}: no certificate with its key in PEM: {error}") from error
    return certificate


def kept_certificate(folder: Path, common_name: str, address: str) -> Certificate:
    """The one of the last start in this folder, if it names the address; else a new one."""
    path, key_path = folder / "cert.pem", folder / "key.pem"
    try:
        shown = x509.load_pem_x509_certificate(path.read_bytes())
        names = shown.extensions.get_extension_for_class(x509.SubjectAlternativeName).value
        kept = Certificate(path, key_path, shown.fingerprint(hashes.SHA256()).hex())
        kept.server_context()
    except (OSError, ValueError, x509.ExtensionNotFound):
        return make_certificate(folder, common_name, address)
    if all(name in names for name in _alternative_names(address)):
        return kept
    return make_certificate(folder, common_name, address)


def make_certificate(folder: Path, common_name: str, address: str) -> Certificate:
    """Makes key (EC P-256) and certificate for `address`, the loopback addresses and localhost."""
    key = ec.generate_private_key(ec.SECP256R1())
    certificate = _builder(common_name, address, key).sign(key, hashes.SHA256())
    path, key_path = folder / "cert.pem", folder / "key.pem"
    _write_private(key_path, key.private_bytes(
        serialization.Encoding.PEM,
        serialization.PrivateFormat.PKCS8,
        serialization.NoEncryption(),
    ))
    path.write_bytes(certificate.public_bytes(serialization.Encoding.PEM))
    return Certificate(path, key_path, certificate.fingerprint(hashes.SHA256()).hex())


def _builder(
    common_name: str, address: str, key: ec.EllipticCurvePrivateKey
) -> x509.CertificateBuilder:
    name = x509.Name([
        x509.NameAttribute(NameOID.ORGANIZATION_NAME, "Tavrin"),
        x509.NameAttribute(NameOID.COMMON_NAME, common_name),
    ])
    now = datetime.datetime.utcnow()
    return (
        x509.CertificateBuilder()
        .subject_name(name)
        .issuer_name(name)
        .public_key(key.public_key())
        .serial_number(x509.random_serial_number())
        .not_valid_before(now - datetime.timedelta(days=1))  # a BMC's clock is rarely right
        .not_valid_after(now + datetime.timedelta(days=3650))
        .add_extension(x509.SubjectAlternativeName(_alternative_names(address)), critical=False)
        .add_extension(x509.BasicConstraints(ca=True, path_length=0), critical=True)
        .add_extension(x509.SubjectKeyIdentifier.from_public_key(key.public_key()), critical=False)
        .add_extension(x509.ExtendedKeyUsage([ExtendedKeyUsageOID.SERVER_AUTH]), critical=False)
    )


def _alternative_names(address: str) -> list[x509.GeneralName]:
    texts = dict.fromkeys([address.partition("%")[0], "127.0.0.1", "::1"])
    addresses = [ipaddress.ip_address(text) for text in texts]
    return [x509.DNSName("localhost")] + [
        x509.IPAddress(a) for a in addresses if not a.is_unspecified
    ]


def _write_private(path: Path, data: bytes) -> None:
    path.touch(mode=0o600)
    os.chmod(path, 0o600)
    path.write_bytes(data)
