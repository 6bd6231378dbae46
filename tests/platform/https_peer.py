#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""An HTTPS server that behaves as the first component of a path says.

/file/N          N bytes           /chunked/N      N bytes, chunked
/cut/N           half of N bytes, then the connection is cut
/cut-chunked/N   the same, chunked
/unbounded/N     N bytes, the end of the connection is the end of the file
/unclean/N       the same, but TLS is not closed
/stall/N         half of N bytes, then silence
/slow/N          N times 1000 bytes, one each 50 ms
/double/N        announces N bytes and sends twice as many
/more/N          the same in one piece with the header lines
/endless         bytes without an end
/hang            no answer          /status/CODE    that status, with a body
/redirect        to /file/10        /account        wants admin:secret or the token "good"
/any/...         ten bytes, whatever follows
/resume/KIND/N   the first time like /cut/N, with a validator; then what the method of that kind says

Prints one JSON line when it is ready; appends a JSON line a request to FOLDER/requests.jsonl; ends
when its standard input closes.
"""

import argparse
import base64
import datetime
import ipaddress
import json
import os
import socket
import ssl
import sys
import threading
import time

from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.hazmat.primitives.asymmetric import ec

BLOCK = 16 * bytes(((i * 31 + (i >> 8)) & 0xFF) for i in range(1 << 16))  # 1 MiB


def content(start, size):
    """Bytes of the endless file that all paths serve."""
    at = start % len(BLOCK)
    while size > 0:
        piece = BLOCK[at:at + size]
        yield piece
        size -= len(piece)
        at = 0


def certificate(subject, issuer, issuer_key, key, names=None):
    now = datetime.datetime.utcnow()
    builder = (x509.CertificateBuilder()
               .subject_name(x509.Name([x509.NameAttribute(x509.NameOID.COMMON_NAME, subject)]))
               .issuer_name(x509.Name([x509.NameAttribute(x509.NameOID.COMMON_NAME, issuer)]))
               .public_key(key.public_key())
               .serial_number(x509.random_serial_number())
               .not_valid_before(now - datetime.timedelta(days=1))
               .not_valid_after(now + datetime.timedelta(days=1))
               .add_extension(x509.BasicConstraints(ca=names is None, path_length=None), True))
    if names is not None:
        builder = builder.add_extension(x509.SubjectAlternativeName(names), False)
    return builder.sign(issuer_key, hashes.SHA256())


def write_pem(path, *parts):
    with open(path, 'wb') as file:
        for part in parts:
            if isinstance(part, x509.Certificate):
                file.write(part.public_bytes(serialization.Encoding.PEM))
            else:
                file.write(part.private_bytes(serialization.Encoding.PEM,
                                              serialization.PrivateFormat.PKCS8,
                                              serialization.NoEncryption()))


def make_certificates(folder, name):
    keys = {who: ec.generate_private_key(ec.SECP256R1()) for who in ('ca', 'other', 'server')}
    names = [x509.DNSName(name)]
    if name == 'localhost':
        names += [x509.IPAddress(ipaddress.ip_address(a)) for a in ('127.0.0.1', '::1')]
    for who in ('ca', 'other'):
        write_pem(f'{folder}/{who}.pem', certificate(who, who, keys[who], keys[who]))
    server = certificate(name, 'ca', keys['ca'], keys['server'], names)
    write_pem(f'{folder}/server.pem', keys['server'], server)


class Cut(Exception):
    """The connection is to be cut without another word."""


class Conversation:
    def __init__(self, server, connection):
        self.server = server
        self.connection = connection
        self.received = b''

    def run(self):
        try:
            while self.serve_one():
                pass
            self.connection.unwrap()
        except (OSError, Cut):
            pass
        finally:
            self.connection.close()

    def serve_one(self):
        while b'\r\n\r\n' not in self.received:
            more = self.connection.recv(65536)
            if not more:
                return False
            self.received += more
        head, self.received = self.received.split(b'\r\n\r\n', 1)
        lines = head.decode('latin-1').split('\r\n')
        method, target, protocol = lines[0].split(' ')
        headers = dict(line.split(':', 1) for line in lines[1:])
        headers = {name: value.strip() for name, value in headers.items()}
        self.server.record({'method': method, 'target': target, 'protocol': protocol,
                            'alpn': self.connection.selected_alpn_protocol() or '',
                            'headers': headers})
        return self.answer(target, headers)

    def send_head(self, status, *lines):
        head = [f'HTTP/1.1 {status} Text', *lines, '', '']
        self.connection.sendall('\r\n'.join(head).encode())

    def send_content(self, start, size):
        for piece in content(start, size):
            self.connection.sendall(piece)

    def send_chunked(self, size):
        for piece in content(0, size):
            self.connection.sendall(b'%x\r\n' % len(piece) + piece + b'\r\n')

    def wait_until_left(self):
        while self.connection.recv(65536):
            pass
        raise Cut

    def answer(self, target, headers):
        kind, _, rest = target[1:].partition('/')
        size = int(rest) if rest.isdigit() else 0
        if kind == 'file':
            self.send_head(200, f'Content-Length: {size}')
            self.send_content(0, size)
        elif kind == 'double':
            self.send_head(200, f'Content-Length: {size}')
            self.send_content(0, size)
            self.send_content(size, size)
        elif kind == 'more':
            head = f'HTTP/1.1 200 Text\r\nContent-Length: {size}\r\n\r\n'
            self.connection.sendall(head.encode() + b''.join(content(0, 2 * size)))
        elif kind == 'endless':
            self.send_head(200, 'Connection: close')
            self.send_content(0, 1 << 60)
        elif kind == 'any':
            self.send_head(200, 'Content-Length: 10')
            self.send_content(0, 10)
        elif kind == 'chunked':
            self.send_head(200, 'Transfer-Encoding: chunked')
            self.send_chunked(size)
            self.connection.sendall(b'0\r\n\r\n')
        elif kind in ('cut', 'stall'):
            self.send_head(200, f'Content-Length: {size}')
            self.send_content(0, size // 2)
            if kind == 'stall':
                self.wait_until_left()
            raise Cut
        elif kind == 'cut-chunked':
            self.send_head(200, 'Transfer-Encoding: chunked')
            self.send_chunked(size // 2)
            raise Cut
        elif kind in ('unbounded', 'unclean'):
            self.send_head(200, 'Connection: close')
            self.send_content(0, size)
            if kind == 'unclean':
                raise Cut
            return False
        elif kind == 'slow':
            self.send_head(200, f'Content-Length: {1000 * size}')
            for piece in range(size):
                self.send_content(1000 * piece, 1000)
                time.sleep(0.05)
        elif kind == 'hang':
            self.wait_until_left()
        elif kind == 'redirect':
            self.send_head(302, 'Location: /file/10', 'Content-Length: 5')
            self.connection.sendall(b'moved')
        elif kind == 'account':
            self.answer_account(headers)
        elif kind == 'resume':
            name, _, size = rest.partition('/')
            Resumed(self, int(size), headers).answer(name, self.server.is_first(target))
        else:
            status = size if kind == 'status' else 404
            if status in (204, 205, 304):
                self.send_head(status, *([] if status == 204 else ['Content-Length: 0']))
            else:
                self.send_head(status, 'Content-Length: 15')
                self.connection.sendall(b'{"error": "no"}')
        return True

    def answer_account(self, headers):
        wanted = 'Basic ' + base64.b64encode(self.server.account.encode()).decode()
        if headers.get('Authorization') == wanted or headers.get('X-Auth-Token') == 'good':
            self.send_head(200, 'Content-Length: 10')
            self.send_content(0, 10)
        else:
            self.send_head(401, 'WWW-Authenticate: Basic realm="BMC"', 'Content-Length: 6')
            self.connection.sendall(b'denied')


TAG = '"state-1"'
MADE = 'Wed, 01 May 2024 12:00:00 GMT'
CHANGED = 'Wed, 01 May 2024 11:00:00 GMT'


class Resumed:
    """One file that is cut the first time."""

    def __init__(self, conversation, size, headers):
        self.to = conversation
        self.size = size
        self.wanted = headers.get('Range', '')
        self.condition = headers.get('If-Range', '')

    def answer(self, name, first):
        validators = {'dated': [f'Last-Modified: {CHANGED}', f'Date: {MADE}'],
                      'fresh': [f'Last-Modified: {MADE}', f'Date: {MADE}'],
                      'weak': [f'ETag: W/{TAG}'],
                      'unknown': [], 'doubled': [f'ETag: {TAG}', 'ETag: "state-0"']}
        lines = validators.get(name, [f'ETag: {TAG}'])
        if not first and name.startswith('tells-'):
            self.tell(name.partition('-')[2], lines)
        elif not first:
            getattr(self, name.replace('-', '_'))(lines)
        if not first:
            return
        sent = self.size if name in ('complete', 'shrunk') else self.size // 2
        self.to.send_head(200, 'Transfer-Encoding: chunked', *lines)
        self.to.send_chunked(sent)
        raise Cut

    def whole(self, *lines, at=0):
        self.to.send_head(200, f'Content-Length: {self.size}', *lines)
        self.to.send_content(at, self.size)

    def rest(self, lines, first=None, last=None, told=None):
        start = int(self.wanted[len('bytes='):-1])
        first = start if first is None else first
        last = self.size - 1 if last is None else last
        told = f'bytes {first}-{last}/{self.size}' if told is None else told
        self.to.send_head(206, f'Content-Length: {last + 1 - first}', f'Content-Range: {told}', *lines)
        self.to.send_content(first, last + 1 - first)

    def honest(self, lines):
        if self.wanted and self.condition == lines[0].split(': ', 1)[1]:
            self.rest(lines)
        else:
            self.whole(*lines)

    dated = fresh = weak = doubled = honest

    def unknown(self, lines):
        self.whole(*lines)

    def ranges_unknown(self, lines):
        self.whole(*lines)

    def changed(self, _):
        self.whole('ETag: "state-2"', at=7)

    def changed_and_empty(self, _):
        self.to.send_head(200, 'Content-Length: 0', 'ETag: "state-2"')

    def complete(self, _):
        if self.wanted == f'bytes={self.size}-':
            self.to.send_head(416, f'Content-Range: bytes */{self.size}', 'Content-Length: 0')
        else:
            self.whole()

    def shrunk(self, _):
        if self.wanted:
            self.to.send_head(416, f'Content-Range: bytes */{self.size // 4}', 'Content-Length: 0')
        else:
            self.whole(at=7)

    def gone(self, _):
        self.to.send_head(404, 'Content-Length: 0')

    def cut_again(self, lines):
        start = int(self.wanted[len('bytes='):-1])
        if start > self.size // 2:
            self.rest(lines)
            return
        self.to.send_head(206, f'Content-Length: {self.size - start}', *lines,
                          f'Content-Range: bytes {start}-{self.size - 1}/{self.size}')
        self.to.send_content(start, (self.size - start) // 2)
        raise Cut

    # From here on they lie. Each sends the file to whom that makes ask for all of it.
    def lies_about_start(self, lines):
        if self.wanted:
            self.rest(lines, first=self.size // 4)
        else:
            self.whole(*lines)

    def lies_about_state(self, _):
        if self.wanted:
            self.rest(['ETag: "state-2"'])
        else:
            self.whole('ETag: "state-2"', at=7)

    def lies_without_range(self, lines):
        if self.wanted:
            self.to.send_head(206, 'Content-Length: 10', *lines)
            self.to.send_content(0, 10)
        else:
            self.whole(*lines)

    def tell(self, what, lines):
        half, size = self.size // 2, self.size
        told = {'nothing': '', 'no-size': f'bytes {half}-{size - 1}/*', 'no-bytes': f'bytes */{size}',
                'backwards': f'bytes {half}-{half - 1}/{size}', 'beyond': f'bytes {half}-{size}/{size}',
                'words': f'bytes half-end/{size}', 'units': f'lines {half}-{size - 1}/{size}',
                'huge': f'bytes {half}-{1 << 64}/{1 << 65}', 'long': f'bytes {"0" * 200}-1/2'}
        if self.wanted:
            self.rest(lines, told=told[what])
        else:
            self.whole(*lines)

    def sends_less(self, lines):
        self.rest(lines, last=self.size - 1001)

    def sends_more(self, lines):
        start = int(self.wanted[len('bytes='):-1])
        self.to.send_head(206, 'Transfer-Encoding: chunked', *lines,
                          f'Content-Range: bytes {start}-{self.size - 1}/{self.size}')
        self.to.send_chunked(self.size)
        self.to.connection.sendall(b'0\r\n\r\n')

    def sends_more_behind(self, lines):
        self.rest(lines)
        self.to.send_content(0, 1000)


class Server:
    def __init__(self, options):
        self.options = options
        self.account = options.account
        self.lock = threading.Lock()
        self.asked = set()
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.context.load_cert_chain(f'{options.folder}/server.pem')
        self.context.set_alpn_protocols(['h2', 'http/1.1'])
        family = socket.AF_INET6 if ':' in options.bind else socket.AF_INET
        self.listener = socket.socket(family)
        self.listener.bind((options.bind, 0))
        self.listener.listen(64)
        self.port = self.listener.getsockname()[1]

    def record(self, request):
        with self.lock, open(f'{self.options.folder}/requests.jsonl', 'a') as file:
            file.write(json.dumps(request) + '\n')

    def is_first(self, target):
        with self.lock:
            first = target not in self.asked
            self.asked.add(target)
            return first

    def serve(self, plain):
        try:
            if self.options.silent:
                while plain.recv(65536):
                    pass
                return
            Conversation(self, self.context.wrap_socket(plain, server_side=True)).run()
        except OSError:
            plain.close()

    def run(self):
        while True:
            plain, _ = self.listener.accept()
            threading.Thread(target=self.serve, args=(plain,), daemon=True).start()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--folder', required=True)
    parser.add_argument('--bind', default='127.0.0.1')
    parser.add_argument('--name', default='localhost', help='whom the certificate names')
    parser.add_argument('--account', default='admin:secret')
    parser.add_argument('--silent', action='store_true', help='connects, and never says a word')
    options = parser.parse_args()
    make_certificates(options.folder, options.name)
    server = Server(options)
    threading.Thread(target=server.run, daemon=True).start()
    print(json.dumps({'port': server.port}), flush=True)
    sys.stdin.read()
    os._exit(0)


main()
