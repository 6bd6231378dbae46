# SPDX-License-Identifier: Apache-2.0
"""An SFTP server (version 3 of the protocol) that answers every login, and as a case tells it."""

import asyncio
import struct
import threading
import warnings

with warnings.catch_warnings():
    warnings.simplefilter("ignore")  # of its own outdated ciphers
    import asyncssh

PORT = 115
INIT, VERSION, OPEN, CLOSE, READ, LSTAT, FSTAT, OPENDIR, READDIR, REALPATH, STAT = 1, 2, 3, 4, 5, 7, 8, 11, 12, 16, 17
STATUS, HANDLE, DATA, NAME, ATTRS = 101, 102, 103, 104, 105
OK, EOF, FAILURE, UNSUPPORTED = 0, 1, 4, 8
FILE = 0o100644


def text(value):
    return struct.pack(">I", len(value)) + value


def attributes(size):
    """Of an ordinary file."""
    return struct.pack(">IQI", 5, size, FILE)


class Plan:
    """What a case wants: one small file, unless told."""

    def __init__(self, *, names=((b"a.log", 100),), size=100, endless_names=False, raw_listing=None, zeros=None):
        self.names, self.size, self.endless_names, self.raw_listing = names, size, endless_names, raw_listing
        self.zeros = size if zeros is None else zeros  # how many bytes a file gives; None of size: all


class Sftp(asyncssh.SSHServerSession):
    """One SFTP conversation."""

    def __init__(self, plan):
        self.plan, self.buffer, self.listed = plan, b"", 0

    def connection_made(self, chan):
        self.channel = chan

    def subsystem_requested(self, subsystem):
        return subsystem == "sftp"

    def data_received(self, data, datatype):
        self.buffer += data
        while len(self.buffer) >= 4 and len(self.buffer) >= 4 + (size := struct.unpack(">I", self.buffer[:4])[0]):
            packet, self.buffer = self.buffer[4:4 + size], self.buffer[4 + size:]
            self.answer(packet[0], packet[1:5], packet[5:])

    def say(self, kind, payload):
        self.channel.write(struct.pack(">IB", len(payload) + 1, kind) + payload)

    def status(self, number, code):
        self.say(STATUS, number + struct.pack(">I", code) + text(b"") + text(b""))

    def answer(self, kind, number, rest):
        if kind == INIT:
            self.say(VERSION, struct.pack(">I", 3))
        elif kind in (OPEN, OPENDIR):
            self.say(HANDLE, number + text(b"h"))
        elif kind in (LSTAT, STAT, FSTAT):
            self.say(ATTRS, number + attributes(self.plan.size))
        elif kind == REALPATH:
            self.say(NAME, number + struct.pack(">I", 1) + text(b"/") * 2 + attributes(0))
        elif kind == READDIR:
            self.list(number)
        elif kind == READ:
            self.read(number, rest)
        else:
            self.status(number, OK if kind == CLOSE else UNSUPPORTED)

    def list(self, number):
        self.listed += 1
        if self.plan.raw_listing is not None:
            self.channel.write(self.plan.raw_listing(number))
        elif self.plan.endless_names:
            names = [(b"core_%012d_%0200d.log" % (self.listed, n), 1) for n in range(100)]
            self.names(number, names)
        elif self.listed == 1:
            self.names(number, self.plan.names)
        else:
            self.status(number, EOF)

    def names(self, number, names):
        listed = b"".join(text(name) + text(b"-rw-r--r-- " + name) + attributes(size) for name, size in names)
        self.say(NAME, number + struct.pack(">I", len(names)) + listed)

    def read(self, number, rest):
        handle = struct.unpack(">I", rest[:4])[0]
        offset, size = struct.unpack(">QI", rest[4 + handle:])
        size = min(size, 1 << 15, max(0, self.plan.zeros - offset))
        if size:
            self.say(DATA, number + text(bytes(size)))
        else:
            self.status(number, EOF)


class Login(asyncssh.SSHServer):
    """Whoever comes."""

    def __init__(self, plan):
        self.plan = plan

    def begin_auth(self, username):
        return True

    def password_auth_supported(self):
        return True

    def validate_password(self, username, password):
        return True

    def session_requested(self):
        return Sftp(self.plan)


class Service:
    """On port 115 of an address, in a thread of its own, until closed."""

    def __init__(self, address, plan):
        self.loop = asyncio.new_event_loop()
        self.ready = threading.Event()
        self.failure = None
        self.thread = threading.Thread(target=self.run, args=(address, plan), daemon=True)
        self.thread.start()
        self.ready.wait(30)
        if self.failure:
            raise self.failure

    def run(self, address, plan):
        asyncio.set_event_loop(self.loop)
        try:
            self.loop.run_until_complete(self.start(address, plan))
        except OSError as failure:
            self.failure = failure
            self.ready.set()
            return
        self.ready.set()
        self.loop.run_forever()

    async def start(self, address, plan):
        self.server = await asyncssh.create_server(
            lambda: Login(plan), address, PORT,
            encoding=None, server_host_keys=[asyncssh.generate_private_key("ssh-ed25519")])

    def close(self):
        self.loop.call_soon_threadsafe(self.server.close)
        self.loop.call_soon_threadsafe(self.loop.stop)
        self.thread.join(10)
