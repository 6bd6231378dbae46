# SPDX-License-Identifier: Apache-2.0
"""The BMC's certificate: self-signed, made at start, as factories ship them."""

from __future__ import annotations

import datetime
import ipaddress
import os
import ssl
from dataclasses import dataclass
from pathlib import Path

from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.hazmat.primitives.asymmetric import ec
from cryptography.x509.oid import ExtendedKeyUsageOID, NameOID


@dataclass(frozen=True)
class Certificate:
    """Files in PEM, and the SHA-256 fingerprint in lower-case hex."""

    path: Path
    key_path: Path
    sha256: str

    def server_context(self) -> ssl.SSLContext:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.minimum_version = ssl.TLSVersion.TLSv1_2
        context.set_alpn_protocols(["http/1.1"])
        context.load_cert_chain(self.path, self.key_path)
        return context


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
