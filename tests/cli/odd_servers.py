# SPDX-License-Identifier: Apache-2.0
"""Small servers that do what the emulated BMC never would: bytes, handshakes and proxies that are odd."""

import contextlib
import datetime
import io
import ipaddress
import json
import pathlib
import socket
import ssl
import subprocess
import tarfile
import tempfile
import threading
import time

from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.hazmat.primitives.asymmetric import ec
from cryptography.x509.oid import NameOID


def _archive():
    packed = io.BytesIO()
    with tarfile.open(fileobj=packed, mode="w:gz") as archive:
        archive.addfile(tarfile.TarInfo("ffdc/events.txt"))
    return packed.getvalue()


ARCHIVE = _archive()

_EXPORT = "TavrinServiceData.ExportFFDCData"


def make_certificate(folder):
    """A self-signed certificate for the loopback addresses; the file holds the key too."""
    file = pathlib.Path(folder) / "server.pem"
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
         "-keyout", str(file), "-out", str(file) + ".crt", "-days", "30", "-subj", "/CN=odd",
         "-addext", "subjectAltName=IP:127.0.0.1,DNS:localhost"],
        check=True, capture_output=True)
    with file.open("a", encoding="ascii") as both:
        both.write(pathlib.Path(str(file) + ".crt").read_text(encoding="ascii"))
    return file


def make_chain(folder, days=30, ca_name="a CA"):
    """A CA of one's own, and a certificate of it for 127.0.0.1 that ends in so many days."""
    def name(text):
        return x509.Name([x509.NameAttribute(NameOID.COMMON_NAME, text)])

    def issue(subject, key, issuer, issuer_key, begin, end, *extensions):
        builder = x509.CertificateBuilder(name(issuer), name(subject), key.public_key(),
                                          x509.random_serial_number(), begin, end)
        for extension in extensions:
            builder = builder.add_extension(extension, critical=True)
        return builder.sign(issuer_key, hashes.SHA256()).public_bytes(serialization.Encoding.PEM)

    now = datetime.datetime.utcnow()
    begin = now - datetime.timedelta(days=60)
    ca_key, key = ec.generate_private_key(ec.SECP256R1()), ec.generate_private_key(ec.SECP256R1())
    ca, server = pathlib.Path(folder) / "ca.pem", pathlib.Path(folder) / "leaf.pem"
    ca.write_bytes(issue(ca_name, ca_key, ca_name, ca_key, begin, now + datetime.timedelta(days=90),
                         x509.BasicConstraints(ca=True, path_length=0)))
    alternative = x509.SubjectAlternativeName([x509.IPAddress(ipaddress.ip_address("127.0.0.1"))])
    server.write_bytes(
        issue("a BMC", key, ca_name, ca_key, begin, now + datetime.timedelta(days=days), alternative)
        + key.private_bytes(serialization.Encoding.PEM, serialization.PrivateFormat.PKCS8,
                            serialization.NoEncryption()))
    return ca, server


def ordinary_answer(method, path):
    """What a BMC would answer: status, header lines, body."""
    def answer(status, members, *headers):
        return status, ["Content-Type: application/json", *headers], json.dumps(members).encode()

    if path == "/redfish/v1/":
        return answer(200, {"RedfishVersion": "1.15.0", "Product": "odd"})
    if path == "/redfish/v1/Managers/1":
        return answer(200, {"Model": "odd"})
    if _EXPORT in path:
        return answer(202, {"Id": "1"})
    if path.endswith("/Tasks/1"):
        return answer(200, {"TaskState": "Completed",
                            "Oem": {"Tavrin": {"FFDCForDownloading": {"Path": "/download/x.tar.gz"}}}})
    if method == "POST" and "Sessions" in path:
        return answer(201, {}, "X-Auth-Token: 0123456789abcdef")
    if path == "/download/x.tar.gz":
        return 200, ["Content-Type: application/gzip"], ARCHIVE
    return answer(404, {"error": {"message": "no such resource"}})


def as_bytes(status, headers, body):
    lines = [f"HTTP/1.1 {status} Odd", *headers, f"Content-Length: {len(body)}", "", ""]
    return "\r\n".join(lines).encode() + body


class OddServer:
    """A TLS server whose `respond` makes the bytes of each answer from the method and the path."""

    def __init__(self, respond=None, prepare=None):
        self.folder = tempfile.TemporaryDirectory()
        self.certificate = make_certificate(self.folder.name)
        self.respond = respond or (lambda method, path: as_bytes(*ordinary_answer(method, path)))
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.context.load_cert_chain(self.certificate)
        if prepare:
            prepare(self.context, self.certificate)
        self.requests = []  # (method, path, header lines)
        self.connections = 0
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.open = set()
        self.thread = threading.Thread(target=self._accept, daemon=True)
        self.thread.start()

    def with_authorization(self):
        return [r for r in self.requests if any(h.lower().startswith("authorization:") for h in r[2])]

    def _accept(self):
        while True:
            try:
                peer, _ = self.listener.accept()
            except OSError:
                return
            threading.Thread(target=self._serve, args=(peer,), daemon=True).start()

    def _serve(self, peer):
        self.open.add(peer)
        with contextlib.suppress(OSError, ssl.SSLError), peer:
            peer.settimeout(20)
            with self.context.wrap_socket(peer, server_side=True) as tls:
                self.connections += 1
                stream = tls.makefile("rb")
                while self._answer_one(tls, stream):
                    pass

    def _answer_one(self, tls, stream):
        first = stream.readline().decode("latin-1").split()
        if len(first) != 3:
            return False
        headers = []
        while line := stream.readline().decode("latin-1").strip():
            headers.append(line)
        sizes = [int(h.split(":")[1]) for h in headers if h.lower().startswith("content-length:")]
        stream.read(sum(sizes))
        self.requests.append((first[0], first[1], headers))
        tls.sendall(self.respond(first[0], first[1]))
        return True

    def stop(self):
        with contextlib.suppress(OSError):
            self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        self.folder.cleanup()


@contextlib.contextmanager
def odd_server(respond=None, prepare=None):
    server = OddServer(respond, prepare)
    try:
        yield server
    finally:
        server.stop()


# --- ways to answer ---------------------------------------------------------------------------


def blank_before_the_first_header(where):
    """A header line that begins with a blank would continue the one before; there is none."""
    def respond(method, path):
        status, headers, body = ordinary_answer(method, path)
        if where(method, path):
            headers = [" Date: x", *headers]
        return as_bytes(status, headers, body)
    return respond


def headers_without_end(method, path):
    """More of them than anybody reads."""
    status, headers, body = ordinary_answer(method, path)
    return as_bytes(status, [*headers, *(["X: " + "y" * 1000] * 1000)], body)


def lower_case_names(method, path):
    """As some reverse proxies write them."""
    status, headers, body = ordinary_answer(method, path)
    lower = [name.lower() + ":" + value for name, value in (h.split(":", 1) for h in headers)]
    return as_bytes(status, lower, body).replace(b"Content-Length", b"content-length")


def old_tls(context, _):
    context.set_ciphers("DEFAULT@SECLEVEL=0")
    context.minimum_version = ssl.TLSVersion.TLSv1
    context.maximum_version = ssl.TLSVersion.TLSv1_1


def client_certificate(version):
    def prepare(context, certificate):
        context.maximum_version = version
        context.verify_mode = ssl.CERT_REQUIRED
        context.load_verify_locations(certificate)
    return prepare


# --- proxies ----------------------------------------------------------------------------------


@contextlib.contextmanager
def proxy_that_says(text):
    """A plain server that answers each connection's first bytes with `text`, or never if None."""
    listener = socket.create_server(("127.0.0.1", 0))

    def serve():
        held = []
        while True:
            try:
                peer, _ = listener.accept()
            except OSError:
                return
            held.append(peer)
            peer.settimeout(10)
            with contextlib.suppress(OSError):
                peer.recv(4096)
                if text is not None:
                    peer.sendall(text)
                    peer.close()

    thread = threading.Thread(target=serve, daemon=True)
    thread.start()
    try:
        yield listener.getsockname()[1]
    finally:
        with contextlib.suppress(OSError):
            listener.shutdown(socket.SHUT_RDWR)
        listener.close()


class Relay:
    """TCP to one place, later to another. `turn_to` cuts what is open."""

    def __init__(self, port, address="127.0.0.1"):
        self.target = port
        self.listener = socket.create_server((address, 0))
        self.port = self.listener.getsockname()[1]
        self.open = []
        self.last_byte = time.monotonic()
        threading.Thread(target=self._accept, daemon=True).start()

    def turn_to(self, port):
        self.target = port
        for peer in self.open:
            with contextlib.suppress(OSError):
                peer.shutdown(socket.SHUT_RDWR)
        self.open = []

    def wait_until_quiet(self, seconds=1.0):
        """Until the answer to what was asked has passed, too."""
        while (rest := self.last_byte + seconds - time.monotonic()) > 0:
            time.sleep(rest)

    def stop(self):
        with contextlib.suppress(OSError):
            self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        self.turn_to(0)

    def _accept(self):
        while True:
            try:
                peer, _ = self.listener.accept()
                other = socket.create_connection(("127.0.0.1", self.target), timeout=5)
            except OSError:
                return
            self.open += [peer, other]
            for source, sink in ((peer, other), (other, peer)):
                threading.Thread(target=self._copy, args=(source, sink), daemon=True).start()

    def _copy(self, source, sink):
        with contextlib.suppress(OSError):
            source.settimeout(30)
            while data := source.recv(65536):
                sink.sendall(data)
                self.last_byte = time.monotonic()
        with contextlib.suppress(OSError):
            sink.shutdown(socket.SHUT_RDWR)
