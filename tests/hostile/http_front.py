# SPDX-License-Identifier: Apache-2.0
"""A TLS server before an emulated BMC, which answers some requests itself, and badly.

A bad answer is a function of a Conversation; it writes whatever it likes.
"""

import contextlib
import fnmatch
import gzip
import http.client
import re
import socket
import ssl
import subprocess
import threading
import time

PIECE = 1 << 20
GIB = 1 << 30
MOST = 3 * GIB  # of what is called endless here: no client has to take it


class Unfit(Exception):
    """A case does not fit the BMC that it is played on."""


class Request:
    """What a client has asked."""

    def __init__(self, line, headers, body):
        self.method, self.path = line.split()[:2]
        self.headers = headers  # pairs, in order
        self.body = body

    def header(self, name):
        return next((v for n, v in self.headers if n.lower() == name.lower()), "")

    def matches(self, pattern):
        """`pattern`: METHOD PATH-PATTERN, or of CIM a method and a word of its parameters; then only
        of requests with an account, unless it is preceded by "anyone"."""
        first, second = pattern.split(" ", 1)
        if self.header("CIMMethod"):
            if first == "anyone":
                first, second = second.split(" ", 1)
            elif not self.header("Authorization"):
                return False
            return first == self.header("CIMMethod") and second.encode() in self.body
        return first in ("*", self.method) and fnmatch.fnmatchcase(self.path, second)


class Conversation:
    """One request, and the way back to who asked."""

    def __init__(self, request, sock, backend):
        self.request, self.sock, self.backend = request, sock, backend  # backend: address and port

    def say(self, data):
        self.sock.sendall(data)

    def real(self):
        """The BMC's own answer: status, headers, body."""
        bmc = http.client.HTTPConnection(*self.backend, timeout=60)
        with contextlib.closing(bmc):
            bmc.putrequest(self.request.method, self.request.path, skip_host=True, skip_accept_encoding=True)
            for name, value in self.request.headers:
                if name.lower() not in ("transfer-encoding", "content-length", "connection", "expect"):
                    bmc.putheader(name, value)
            if self.request.body:
                bmc.putheader("Content-Length", str(len(self.request.body)))
            bmc.endheaders(self.request.body or None)
            answer = bmc.getresponse()
            return answer.status, answer.getheaders(), answer.read()

    def head(self, length=None, status=200, headers=(), kind="application/json"):
        lines = [f"HTTP/1.1 {status} OK", f"Content-Type: {kind}", *headers]
        if self.request.header("CIMMethod"):
            lines.append("CIMOperation: MethodResponse")
        if length is not None:
            lines.append(f"Content-Length: {length}")
        self.say("\r\n".join([*lines, "", ""]).encode())

    def whole(self, body, **more):
        self.head(len(body), **more)
        self.say(body)

    def pass_on(self, body=None, extra_head=b""):
        """The BMC's own answer, perhaps with another body."""
        status, headers, own = self.real()
        body = own if body is None else body
        kept = [f"{n}: {v}" for n, v in headers
                if n.lower() not in ("content-length", "transfer-encoding", "connection", "trailer")]
        head = "\r\n".join([*kept, f"Content-Length: {len(body)}", "", ""]).encode()
        self.say(f"HTTP/1.1 {status} OK\r\n".encode() + extra_head + head)
        if self.request.method != "HEAD":
            self.say(body)


class Front:
    """Serves on a free port until closed. `bad`: pairs of a pattern and an answer; with a number in
    front, that many requests are passed on before."""

    def __init__(self, address, backend, folder, *bad):
        self.backend = (address, backend)
        self.bad = [rule if len(rule) == 3 else (0, *rule) for rule in bad]
        self.seen = {rule[1]: 0 for rule in self.bad}
        self.lock = threading.Lock()
        self.unfit = []  # why a case could not be played
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.context.load_cert_chain(certificate(folder))
        self.listener = socket.create_server((address, 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.accept, daemon=True).start()

    def close(self):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()

    def accept(self):
        with contextlib.suppress(OSError):
            while True:
                client, _ = self.listener.accept()
                threading.Thread(target=self.serve, args=(client,), daemon=True).start()

    def serve(self, client):
        # What a client that has had enough makes of the connection is its affair.
        with contextlib.suppress(OSError, ValueError, http.client.HTTPException), client:
            client.settimeout(300)
            with self.context.wrap_socket(client, server_side=True) as sock:
                file = sock.makefile("rb")
                try:
                    while (request := read_request(file, sock)) is not None:
                        self.answer(Conversation(request, sock, self.backend))
                except Unfit as why:
                    self.unfit.append(str(why))

    def answer(self, conversation):
        for passed, pattern, bad in self.bad:
            if conversation.request.matches(pattern):
                with self.lock:
                    self.seen[pattern] += 1
                    count = self.seen[pattern]
                if count > passed:
                    bad(conversation)
                    return
        conversation.pass_on()


def certificate(folder):
    """Key and certificate in one file."""
    file = folder / "front.pem"
    if not file.exists():
        made = subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
             "-subj", "/CN=bmc", "-addext", "subjectAltName=DNS:bmc", "-days", "2", "-keyout", "-"],
            capture_output=True, check=True)
        file.write_bytes(made.stdout)
    return file


def read_request(file, sock):
    line = file.readline().decode("latin-1").strip()
    if not line:
        return None
    headers = []
    while (text := file.readline().decode("latin-1").strip()):
        name, _, value = text.partition(":")
        headers.append((name, value.strip()))
    known = {name.lower(): value for name, value in headers}
    if known.get("expect"):
        sock.sendall(b"HTTP/1.1 100 Continue\r\n\r\n")
    body = b""
    if known.get("transfer-encoding", "").lower() == "chunked":
        while (size := int(file.readline().split(b";")[0], 16)):
            body += file.read(size + 2)[:-2]
        while file.readline().strip():
            pass
    else:
        body = file.read(int(known.get("content-length", "0")))
    return Request(line, headers, body)


# ---- bad answers --------------------------------------------------------------------------------

def filled(size, text=b"x"):
    """A body of that size."""
    def answer(talk):
        talk.head(size)
        piece = text * (PIECE // len(text))
        for _ in range(size // len(piece)):
            talk.say(piece)
    return answer


def repeated(before, text, after, size):
    """JSON or XML out of one piece of text."""
    return lambda talk: talk.whole(before + text * (size // len(text)) + after)


def chunks_for_ever(talk):
    talk.head(headers=["Transfer-Encoding: chunked"])
    for _ in range(MOST // PIECE):
        talk.say(b"%x\r\n" % PIECE + b"x" * PIECE + b"\r\n")


def chunk_size_for_ever(talk):
    talk.head(headers=["Transfer-Encoding: chunked"])
    for _ in range(MOST // PIECE):
        talk.say(b"0" * PIECE)


def trailers_for_ever(talk):
    talk.head(headers=["Transfer-Encoding: chunked", "Trailer: X"])
    talk.say(b"2\r\n{}\r\n0\r\n")
    for _ in range(MOST // PIECE):
        talk.say(b"X: 1\r\n" * (PIECE // 6))


def headers_for_ever(talk):
    talk.say(b"HTTP/1.1 200 OK\r\n")
    for _ in range(MOST // PIECE):
        talk.say(b"X-Fill: 0123456789\r\n" * (PIECE // 20))


def header_for_ever(talk):
    talk.say(b"HTTP/1.1 200 OK\r\nX-Fill: ")
    for _ in range(MOST // PIECE):
        talk.say(b"x" * PIECE)


def interim_for_ever(talk):
    for _ in range(MOST // PIECE):
        talk.say(b"HTTP/1.1 102 Processing\r\n\r\n" * (PIECE // 27))


def gzip_bomb(talk):
    zeros = gzip.compress(b"0" * (64 * PIECE), 9)  # some 64 KB; members may follow each other
    talk.whole(zeros * 48, headers=["Content-Encoding: gzip"])


def blank_led_header(talk):
    """A header line that begins with a blank continues the one before it; here there is none."""
    talk.pass_on(extra_head=b" Date: x\r\n")


def cut(talk):
    """Half of the BMC's own answer, then the end."""
    status, _, body = talk.real()
    talk.head(len(body), status=status)
    talk.say(body[:len(body) // 2])
    raise OSError


def half(talk):
    """Half of the BMC's own answer, as if that were all."""
    status, _, body = talk.real()
    talk.whole(body[:len(body) // 2], status=status)


def dripped(talk):
    """50 bytes a second of a mebibyte."""
    talk.head(1 << 20)
    for _ in range(3600):
        talk.say(b"x" * 50)
        time.sleep(1)


def edited(pattern, replacement):
    """The BMC's own answer, with the first match replaced."""
    def answer(talk):
        body = talk.real()[2]
        changed, count = re.subn(pattern, lambda match: match[0] + replacement, body, 1)
        if count != 1:
            raise Unfit(f"nothing to edit in {body[:200]!r}")
        talk.pass_on(changed)
    return answer
