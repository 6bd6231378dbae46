#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""An HTTP server that tells what it received and misbehaves on request.

/echo            JSON: method, headers, bytes and CRC-32 of the body, whether it came chunked, number
                 of the connection. HEAD answers the same length without the body
/bytes/N         N bytes of 0, 1, ..., 250, 0, ...
/moved/CODE      that redirect to /echo, after the body was received
/cookie/NAME     sets the cookie NAME=1, then as /echo
/spelled         headers in odd spellings
/silent          receives the request and never answers
/stall/N         half of N bytes, then silence
/cut/N           half of N bytes, then the connection is closed
/cut             the connection is closed without an answer

Prints one JSON line when it is ready and ends when its standard input closes.
"""

import json
import os
import sys
import threading
import zlib
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

PATTERN = bytes(range(251)) * 4096


def pattern(size):
    while size > 0:
        piece = PATTERN[:size]
        yield piece
        size -= len(piece)


class Handler(BaseHTTPRequestHandler):
    protocol_version = 'HTTP/1.1'
    wbufsize = 1 << 16
    connections = 0

    def setup(self):
        super().setup()
        Handler.connections += 1
        self.connection_number = Handler.connections

    def log_message(self, *_):
        pass

    def body_pieces(self):
        if self.headers.get('Transfer-Encoding', '').lower() == 'chunked':
            while True:
                size = int(self.rfile.readline().split(b';')[0], 16)
                if size == 0:
                    self.rfile.readline()
                    return
                yield self.rfile.read(size)
                self.rfile.readline()
        left = int(self.headers.get('Content-Length', 0))
        while left > 0:
            piece = self.rfile.read(min(left, 1 << 20))
            if not piece:
                return
            left -= len(piece)
            yield piece

    def receive_body(self):
        self.size, self.crc, self.start = 0, 0, b''
        for piece in self.body_pieces():
            self.size += len(piece)
            self.crc = zlib.crc32(piece, self.crc)
            self.start = (self.start + piece[:200])[:200]

    def answer(self, status, body=b'', headers=()):
        self.send_response(status)
        for name, value in headers:
            self.send_header(name, value)
        self.send_header('Content-Length', str(len(body)))
        self.end_headers()
        if self.command != 'HEAD':
            self.wfile.write(body)

    def echo(self, headers=()):
        self.answer(200, json.dumps({
            'method': self.command,
            'version': self.request_version,
            'headers': dict(self.headers.items()),
            'size': self.size,
            'crc': self.crc,
            'start': self.start.decode('latin-1'),
            'chunked': 'Transfer-Encoding' in self.headers,
            'connection': self.connection_number,
        }).encode(), [('Content-Type', 'application/json'), ('X-Method', self.command), *headers])

    def send_half(self, size):
        self.send_response(200)
        self.send_header('Content-Length', str(size))
        self.end_headers()
        for piece in pattern(size // 2):
            self.wfile.write(piece)
        self.wfile.flush()
        self.close_connection = True

    def stay_silent(self):
        self.rfile.read(1)  # ends when the client has gone
        self.close_connection = True

    def handle_any(self):
        self.receive_body()
        kind, _, rest = self.path[1:].partition('/')
        if kind == 'echo':
            self.echo()
        elif kind == 'bytes':
            self.send_response(200)
            self.send_header('Content-Length', rest)
            self.end_headers()
            for piece in pattern(int(rest)):
                self.wfile.write(piece)
        elif kind == 'moved':
            self.answer(int(rest), b'moved', [('Location', '/echo')])
        elif kind == 'cookie':
            self.echo([('Set-Cookie', f'{rest}=1; Path=/')])
        elif kind == 'spelled':
            self.answer(200, b'', [('x-LOWER-upper', 'kept'), ('X-Blanks', '   a b \t'),
                                   ('X-Twice', 'one'), ('X-Twice', 'two')])
        elif kind == 'silent':
            self.stay_silent()
        elif kind == 'stall':
            self.send_half(int(rest))
            self.stay_silent()
        elif kind == 'cut':
            self.close_connection = True
            if rest:
                self.send_half(int(rest))
        else:
            self.answer(404)

    def __getattr__(self, name):
        if name.startswith('do_'):
            return self.handle_any
        raise AttributeError(name)


def main():
    server = ThreadingHTTPServer(('127.0.0.1', 0), Handler)
    server.daemon_threads = True
    threading.Thread(target=server.serve_forever, daemon=True).start()
    print(json.dumps({'port': server.server_address[1]}), flush=True)
    sys.stdin.read()
    os._exit(0)


main()
