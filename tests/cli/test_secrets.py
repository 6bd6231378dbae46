# SPDX-License-Identifier: Apache-2.0
"""A BMC that tells passwords back, in every form that is common for texts."""

import base64
import concurrent.futures
import contextlib
import html
import http.server
import json
import os
import random
import ssl
import string
import subprocess
import threading
import urllib.parse

import pytest

import tool

SEED = 20261121
ROUNDS = int(os.environ.get("KEMFFDC_SECRETS", "200"))  # each with all forms of a secret
AT_ONCE = 4

PLAIN = "no-secret-0123456789"  # shows that what the BMC told has come so far

ALPHABETS = [
    string.ascii_letters + string.digits,
    string.printable.strip(),
    string.ascii_letters + " \"'\\<>&%+/=:;,\n\t",
    "äöüß€密码" + string.ascii_lowercase,
]


def forms_of(secret, user):
    """How a BMC may write `secret`; each is one that another program would read back."""
    raw = secret.encode()
    both = f"{user}:{secret}".encode()
    quoted = json.dumps(secret)[1:-1]
    return {
        "as it is": secret,
        "base64": base64.b64encode(raw).decode(),
        "base64 without padding": base64.b64encode(raw).decode().rstrip("="),
        "base64url": base64.urlsafe_b64encode(raw).decode(),
        "base64 of user and password": base64.b64encode(both).decode(),
        "percent, what must be": urllib.parse.quote(secret, safe=""),
        "percent, everything": "".join(f"%{byte:02X}" for byte in raw),
        "percent, small": "".join(f"%{byte:02x}" for byte in raw),
        "hex": raw.hex(),
        "HEX": raw.hex().upper(),
        "JSON": quoted,
        "JSON in JSON": json.dumps(quoted)[1:-1],
        "JSON, everything": "".join(f"\\u{ord(c):04x}" for c in secret if ord(c) < 0x10000),
        "XML": html.escape(secret),
        "XML, everything": "".join(f"&#{ord(c)};" for c in secret),
        "XML, everything in hex": "".join(f"&#x{ord(c):x};" for c in secret),
        "base64 of percent": urllib.parse.quote(base64.b64encode(raw).decode(), safe=""),
    }


# Of one or two bytes, these could be any word; nobody keeps such a password secret.
CODED = ("base64", "hex", "HEX")


def is_hidden(name, secret):
    return len(secret.encode()) > 2 or not name.startswith(CODED)


def random_secret(dice):
    length = dice.choice([1, 2, 3, 4, 5, 8, 12, 20, 40])
    while True:
        secret = "".join(dice.choice(dice.choice(ALPHABETS)) for _ in range(length))
        # The tool takes a line end at its end for the file's.
        if secret == secret.strip() and len(secret) == length:
            return secret


class TellTale(http.server.BaseHTTPRequestHandler):
    """A BMC that takes any password and tells `self.server.told` in each of its answers."""

    protocol_version = "HTTP/1.1"

    def answer(self, status, document):
        body = json.dumps(document).encode()
        self.send_response(status)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        told = self.server.told
        self.answer(200, {
            "@odata.id": "/redfish/v1/", "RedfishVersion": "1.15.0", "Product": told, "Vendor": told,
            "Model": told, "FirmwareVersion": told, "Oem": {"Said": told}})

    def do_POST(self):
        self.rfile.read(int(self.headers.get("Content-Length", 0)))
        self.answer(400, {"error": {"message": self.server.told}})

    def log_message(self, *_):
        pass


@pytest.fixture(scope="module")
def certificate(tmp_path_factory):
    file = tmp_path_factory.mktemp("tls") / "certificate.pem"
    subprocess.run(
        ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
         "-subj", "/CN=bmc", "-days", "2", "-keyout", file, "-out", str(file) + ".crt"],
        check=True, capture_output=True)
    with open(file, "a", encoding="ascii") as whole, open(str(file) + ".crt", encoding="ascii") as rest:
        whole.write(rest.read())
    return file


@contextlib.contextmanager
def tell_tale(certificate, told):
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), TellTale)
    server.daemon_threads = True
    server.told = told
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate)
    server.socket = context.wrap_socket(server.socket, server_side=True)
    thread = threading.Thread(target=server.serve_forever, kwargs={"poll_interval": 0.05})
    thread.start()
    try:
        yield server.server_address[1]
    finally:
        server.shutdown()
        thread.join()
        server.server_close()


def outputs(certificate, folder, number, secret, told):
    """What the tool wrote while a BMC told it this: by name."""
    log = folder / f"{number}.log"
    command = "check" if number % 3 == 0 else "collect"
    with tell_tale(certificate, told) as port:
        arguments = [
            command, "--via", "redfish", "127.0.0.1", "--port", str(port), "--user", "root",
            "--password-file", "-", "--log-file", str(log), "--log-level", "4",
            *(["--json"] if number % 2 else []),
            *(["--output", str(folder / str(number))] if command == "collect" else [])]
        ended = tool.run(arguments, password=secret)
    assert ended.code == (0 if command == "check" else 4), ended.err
    written = log.read_text(encoding="utf-8", errors="surrogateescape")
    assert PLAIN in written
    assert PLAIN in ended.out + ended.err
    return {"standard output": ended.out, "standard error": ended.err, "log": written}


def shown(certificate, folder, number):
    """Where a form of a random secret can be read, and which."""
    dice = random.Random(SEED + number)
    secret = random_secret(dice)
    forms = forms_of(secret, "root")
    order = sorted(forms)
    dice.shuffle(order)
    told = PLAIN + " " + " ".join(f"[{forms[name]}]" for name in order)
    found = []
    texts = outputs(certificate, folder, number, secret, told)
    for place, text in texts.items():
        for name in order:
            form = f"[{forms[name]}]"
            # A log is one line for each record, and JSON is escaped once more.
            spellings = {form, json.dumps(form)[1:-1], json.dumps(json.dumps(form)[1:-1])[1:-1]}
            if is_hidden(name, secret) and any(spelling in text for spelling in spellings):
                found.append((secret, name, place))
    return found


def test_nothing_that_a_bmc_tells_back_shows_a_password(certificate, tmp_path):
    with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
        found = [row for rows in pool.map(lambda n: shown(certificate, tmp_path, n), range(ROUNDS)) for row in rows]
    assert found == []
