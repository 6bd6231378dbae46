#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""An SSH server whose SFTP is written here, packet by packet, and wrong in the way that a name says.

Every file holds SIZE bytes, "a" to "z" over and over. Prints one JSON line when it is ready; ends when
its standard input closes. Appends a JSON line for each read to READS.
"""

import argparse
import asyncio
import json
import struct
import warnings

warnings.simplefilter('ignore')  # about ciphers that nobody here uses

import asyncssh  # noqa: E402

from peer_life import end_with_input  # noqa: E402

SIZE = 300000
CONTENT = (bytes(range(97, 123)) * (SIZE // 26 + 1))[:SIZE]
FILE, FIFO, DEVICE = 0o100644, 0o010644, 0o020644
STATUS, HANDLE, DATA, NAME, ATTRS = 101, 102, 103, 104, 105


def number(value):
    return struct.pack('>I', value)


def text(value):
    return number(len(value)) + value


def attributes(size, mode=FILE):
    return number(5) + struct.pack('>QI', size, mode)


class Conversation(asyncssh.SSHServerSession):
    options = None

    def __init__(self):
        self.channel = None
        self.listed = 0
        self.received = asyncio.StreamReader()

    def connection_made(self, chan):
        self.channel = chan

    def subsystem_requested(self, subsystem):
        return subsystem == 'sftp'

    def session_started(self):
        self.task = asyncio.ensure_future(self.run())

    def data_received(self, data, datatype):
        self.received.feed_data(data)

    def eof_received(self):
        self.received.feed_eof()

    def connection_lost(self, exc):
        self.received.feed_eof()

    def write(self, data):
        self.channel.write(data)

    def send(self, kind, request, body):
        packet = bytes([kind]) + number(request) + body
        self.write(number(len(packet)) + packet)

    def send_status(self, request, code):
        self.send(STATUS, request, number(code) + text(b'') + text(b''))

    async def read_packet(self):
        head = await self.received.readexactly(4)
        return await self.received.readexactly(struct.unpack('>I', head)[0])

    async def run(self):
        try:
            await self.read_packet()
            self.greet()
            while True:
                packet = await self.read_packet()
                await self.answer(packet[0], struct.unpack('>I', packet[1:5])[0], packet[5:])
        except (asyncio.IncompleteReadError, asyncssh.Error, OSError):
            pass
        self.channel.close()

    def greet(self):
        kind = self.options.greeting
        body = {'old': b'\x02' + number(2), 'wrong': b'\x65' + number(3),
                'cut': b'\x02\x00'}.get(kind, b'\x02' + number(3))
        if kind == 'long':
            self.write(number(0xFFFFFFF0))
        if kind != 'none':
            self.write(number(len(body)) + body)

    async def answer(self, kind, request, body):
        name = body[4:4 + struct.unpack('>I', body[:4])[0]].decode().strip('/')
        if kind in (17, 8):
            self.answer_stat(request, name, kind == 17)
        elif kind in (3, 11):
            self.send(HANDLE, request, text(name.encode()))
        elif kind == 5:
            await self.answer_read(request, name, *struct.unpack('>QI', body[-12:]))
        elif kind == 12:
            self.answer_list(request, name)
        else:
            self.send_status(request, 0)

    def answer_stat(self, request, name, by_path):
        if name == 'many-attributes':
            self.send(ATTRS, request, number(0x80000005) + struct.pack('>QI', SIZE, FILE) +
                      number(0xFFFFFFFF))
            return
        size = {'half': SIZE // 2 if by_path else SIZE, 'double': 2 * SIZE,
                'huge': 1 << 62}.get(name, SIZE)
        mode = {'fifo': FIFO, 'device': DEVICE}.get(name, FILE)
        if name == 'no-size':
            self.send(ATTRS, request, number(0))
        else:
            self.send(ATTRS, request, attributes(size, mode))

    async def answer_read(self, request, name, offset, size):
        with open(self.options.reads, 'a', encoding='ascii') as reads:
            reads.write(json.dumps([name, offset, size]) + '\n')
        data = CONTENT[offset:offset + size]
        if name == 'short':
            data = data[:1000]
        elif name == 'unasked':
            self.send(DATA, request + 1000, text(data))
        elif name == 'twice':
            self.send(DATA, request, text(data))
        elif name == 'more':
            data += b'x'
        elif name == 'nothing':
            data = b''
        elif name == 'long-packet':
            self.write(number(0x7FFFFFFF) + b'x')
        elif name == 'too-long-packet':
            self.send(DATA, request, text(b'x' * 300000))
        elif name == 'empty-packet':
            self.write(number(0))
        elif name == 'lying-length':
            self.send(DATA, request, number(0xFFFFFFFF) + data)
            return
        elif name == 'flood':
            for _ in range(2000):
                self.send(DATA, request + 7, text(b'x' * 32768))
                await asyncio.sleep(0)
        elif name == 'another-type':
            self.send(NAME, request, number(0))
            return
        if data or name == 'nothing':
            self.send(DATA, request, text(data))
        else:
            self.send_status(request, 1)

    def answer_list(self, request, name):
        self.listed += 1
        entry = text(b'name-%d' % self.listed) + text(b'') + number(0)
        if name == 'endless':
            self.send(NAME, request, number(1000) + 1000 * entry)
        elif name == 'endless-short':
            self.send(NAME, request, number(10000) + 10000 * (text(b'x') + text(b'') + number(0)))
        elif name == 'endless-nothing':
            self.send(NAME, request, number(0))
        elif name == 'lying-count':
            self.send(NAME, request, number(0xFFFFFFFF) + entry)
        elif name == 'lying-name':
            self.send(NAME, request, number(1) + number(0xFFFFFFFF))
        elif self.listed > 1:
            self.send_status(request, 1)
        else:
            self.send(NAME, request, number(1) + entry)


class HostileServer(asyncssh.SSHServer):
    def begin_auth(self, username):
        return True

    def password_auth_supported(self):
        return True

    def validate_password(self, username, password):
        return True

    def session_requested(self):
        return Conversation()


async def serve(options):
    Conversation.options = options
    server = await asyncssh.create_server(
        HostileServer, '127.0.0.1', 0, server_host_keys=[asyncssh.generate_private_key('ssh-ed25519')],
        encoding=None, login_timeout=20)
    print(json.dumps({'port': server.sockets[0].getsockname()[1], 'fingerprint': '', 'public': ''}),
          flush=True)
    await asyncio.Event().wait()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--reads', required=True)
    parser.add_argument('--greeting', default='right')
    options = parser.parse_args()
    end_with_input()
    asyncio.run(serve(options))


main()
