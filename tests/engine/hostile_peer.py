#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""A TLS server whose answers want more than a client should give.

hostile_peer.py FOLDER [AFTER KIND]   writes its certificate into FOLDER. From request AFTER + 1 of
                    the process on, whatever the path, the answer is KIND. Without it the path says
                    the kind:

/ok                 200 and a small Redfish object, with the number of the connection
/blank              200, the first header line begins with a blank
/body/N             N bytes, announced
/endless            a body in chunks that does not end
/headers            header lines without end
/header             one header line without end
/status             a status line without end
/interim            answers 100 without end
/trailers           a small body in chunks, then trailer lines without end
/bomb               256 MiB of zeros, compressed by gzip
/cookies            50 new cookies of 4 KiB
/cut-cookies        the same, and the connection is cut in the body
/to/SCHEME/PORT     302 to that place on 127.0.0.1

Prints one JSON line when it is ready and ends when its standard input closes. FOLDER/received holds
a line for each request: method and path.
"""

import json
import os
import socket
import ssl
import subprocess
import sys
import threading
import zlib

FOLDER = sys.argv[1]
AFTER, KIND = (int(sys.argv[2]), sys.argv[3]) if len(sys.argv) > 3 else (1 << 60, '')

lock = threading.Lock()
requests = 0
connections = 0


def head(status, *lines):
    return '\r\n'.join([f'HTTP/1.1 {status} Status', *lines, '', '']).encode()


def whole(status, body, *lines):
    return [head(status, *lines, f'Content-Length: {len(body)}') + body]


def repeated(first, piece):
    yield first
    while True:
        yield piece


def bomb():
    packer = zlib.compressobj(9, zlib.DEFLATED, 31)
    block = bytes(1 << 20)
    packed = b''.join(packer.compress(block) for _ in range(1 << 8)) + packer.flush()
    return whole(200, packed, 'Content-Encoding: gzip')


def cookies(number):
    return [f'Set-Cookie: c{number}x{i}={"v" * 4000}; Path=/' for i in range(50)]


def answer(kind, number, connection):
    """Pieces of the answer to request `number`."""
    kind, _, rest = kind.partition('/')
    if kind == 'ok':
        body = {'RedfishVersion': '1.15.0', 'Id': '1', 'TaskState': 'Completed', 'connection': connection}
        return whole(200, json.dumps(body).encode())
    if kind == 'blank':
        return [b'HTTP/1.1 200 OK\r\n Date: x\r\nContent-Length: 2\r\n\r\n{}']
    if kind == 'body':
        size = int(rest)
        blocks = (bytes(min(1 << 20, size - at)) for at in range(0, size, 1 << 20))
        return (piece for piece in (head(200, f'Content-Length: {size}'), *blocks)) \
            if size < 1 << 26 else repeated(head(200, f'Content-Length: {size}'), bytes(1 << 20))
    if kind == 'endless':
        return repeated(head(200, 'Transfer-Encoding: chunked'), b'10000\r\n' + b'x' * 65536 + b'\r\n')
    if kind == 'headers':
        return repeated(head(200)[:-2], b'a:b\r\n' * 10000)
    if kind == 'header':
        return repeated(head(200)[:-2] + b'A: ', b'b' * 65536)
    if kind == 'status':
        return repeated(b'HTTP/1.1 200 ', b'b' * 65536)
    if kind == 'interim':
        return repeated(b'', head(100, 'A: b') * 1000)
    if kind == 'trailers':
        return repeated(head(200, 'Transfer-Encoding: chunked', 'Trailer: a') + b'2\r\n{}\r\n0\r\n',
                        b'a: b\r\n' * 10000)
    if kind == 'bomb':
        return bomb()
    if kind == 'cookies':
        return whole(200, b'{}', *cookies(number))
    if kind == 'cut-cookies':
        return [head(200, 'Content-Length: 9', *cookies(number)) + b'cut', None]
    if kind == 'to':
        scheme, _, port = rest.partition('/')
        return whole(302, b'', f'Location: {scheme}://127.0.0.1:{port}/ok')
    return whole(404, b'{}')


def read_request(reader):
    """Method and path; None at the end of the connection."""
    first = reader.readline()
    if not first:
        return None
    length = 0
    while (line := reader.readline().strip()):
        name, _, value = line.partition(b':')
        if name.lower() == b'content-length':
            length = int(value)
    reader.read(length)
    return first.decode('latin-1').split(' ')[:2]


def converse(stream, connection):
    global requests
    reader = stream.makefile('rb')
    while (request := read_request(reader)) is not None:
        with lock:
            requests += 1
            number = requests
            with open(f'{FOLDER}/received', 'a', encoding='utf-8') as received:
                received.write(f'{request[0]} {request[1][:200]}\n')
        kind = KIND if number > AFTER else 'ok' if KIND else request[1][1:]
        for piece in answer(kind, number, connection):
            if piece is None:
                return
            stream.sendall(piece)


def serve(plain, context):
    global connections
    with lock:
        connections += 1
        connection = connections
    try:
        with context.wrap_socket(plain, server_side=True) as stream:
            converse(stream, connection)
    except OSError:
        pass  # the client has gone


def main():
    subprocess.run(['openssl', 'req', '-x509', '-newkey', 'ec', '-pkeyopt',
                    'ec_paramgen_curve:prime256v1', '-nodes', '-keyout', f'{FOLDER}/key.pem',
                    '-out', f'{FOLDER}/certificate.pem', '-days', '1', '-subj', '/CN=127.0.0.1'],
                   check=True, stderr=subprocess.DEVNULL)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(f'{FOLDER}/certificate.pem', f'{FOLDER}/key.pem')
    listener = socket.create_server(('127.0.0.1', 0))

    def accept():
        while True:
            plain, _ = listener.accept()
            threading.Thread(target=serve, args=(plain, context), daemon=True).start()

    threading.Thread(target=accept, daemon=True).start()
    print(json.dumps({'port': listener.getsockname()[1]}), flush=True)
    sys.stdin.read()
    os._exit(0)


main()
