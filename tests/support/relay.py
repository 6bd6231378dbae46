#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Bad weather between a client and a server: relay.py {tcp|udp} --to ADDRESS:PORT [OPTION...]

Passes on what comes, both ways, and loses, delays, repeats, reorders, cuts or drips it. What
happens is drawn from --seed alone, for each direction and each connection from a stream of its own:
the third datagram down has the same fate in every run, whatever went up meanwhile.

Prints one line of JSON when it is ready, {"address", "port"}, and ends when its standard input
closes. "up" is client to server, "down" is server to client. Numbers that take a range are one
number, or two with dots between (10..50), and then drawn.
"""

from __future__ import annotations

import argparse
import asyncio
import contextlib
import json
import os
import random
import socket
import struct
import sys
from typing import NamedTuple

BLOCK = 16 * 1024  # of a TCP stream; each block is delayed or lost as a whole
MOST_BLOCKS = 64   # on the way at once in one direction of a connection


class Range(NamedTuple):
    """From low to high, both included."""
    low: float
    high: float

    @classmethod
    def read(cls, text: str) -> "Range":
        low, _, high = text.partition("..")
        return cls(float(low), float(high or low))

    def drawn(self, chance: random.Random) -> float:
        return chance.uniform(self.low, self.high)


class Fate(NamedTuple):
    """Of one datagram or block."""
    lost: bool = False
    twice: bool = False
    late: float = 0.0  # seconds

    def __str__(self) -> str:
        if self.lost:
            return "lost"
        return f"late {self.late * 1000:.1f} ms" + (" twice" if self.twice else "")


class Chance:
    """The fates of what goes one way, in order. Each takes the same draws, whatever they say."""

    def __init__(self, options: argparse.Namespace, stream: str):
        self.options = options
        self.chance = random.Random(f"{options.seed}/{stream}")
        self.calm = options.direction not in ("both", stream.rpartition("/")[2])
        self.left_alone = options.begin_after

    def next(self) -> Fate:
        draw = [self.chance.random() for _ in range(3)]
        late = self.options.delay.drawn(self.chance)
        if self.calm or self.left_alone > 0:
            self.left_alone -= 1
            return Fate()
        if draw[2] < self.options.reorder:
            late += self.options.reorder_by
        return Fate(draw[0] < self.options.loss, draw[1] < self.options.duplicate, late / 1000)

    def cut(self) -> int | None:
        """After how many bytes a connection breaks; None: never."""
        draw = self.chance.random()
        if self.options.cut_after is None:
            return None
        after = int(self.options.cut_after.drawn(self.chance))
        return None if self.calm or draw >= self.options.cut_share else after


class Record:
    """What was decided, one line each."""

    def __init__(self, name: str | None):
        self.file = open(name, "a", encoding="utf-8", buffering=1) if name else None

    def __call__(self, *words: object) -> None:
        if self.file:
            print(*words, file=self.file)


# ---- UDP ----------------------------------------------------------------------------------------

class UdpRelay:
    """Each client has a socket of its own towards the server."""

    def __init__(self, options: argparse.Namespace, record: Record):
        self.options, self.record = options, record
        self.ways = {way: Chance(options, way) for way in ("up", "down")}
        self.count = {"up": 0, "down": 0}
        self.clients: dict[tuple, socket.socket] = {}
        self.front = udp_socket()

    async def start(self) -> tuple[str, int]:
        self.front.bind(self.options.listen)
        asyncio.get_running_loop().add_reader(self.front, self.from_clients)
        return self.front.getsockname()

    def from_clients(self) -> None:
        for data, client in arrived(self.front):
            self.pass_on("up", self.towards_server(client).send, data)

    def towards_server(self, client: tuple) -> socket.socket:
        if client not in self.clients:
            back = self.clients[client] = udp_socket()
            back.connect(self.options.to)
            asyncio.get_running_loop().add_reader(back, self.from_server, back, client)
        return self.clients[client]

    def from_server(self, back: socket.socket, client: tuple) -> None:
        for data, _ in arrived(back):
            self.pass_on("down", lambda text: self.front.sendto(text, client), data)

    def pass_on(self, way: str, send, data: bytes) -> None:
        fate = self.ways[way].next()
        self.count[way] += 1
        self.record(way, self.count[way], fate)
        for _ in range(0 if fate.lost else 2 if fate.twice else 1):
            if fate.late > 0:
                asyncio.get_running_loop().call_later(fate.late, quietly, send, data)
            else:
                quietly(send, data)


def udp_socket() -> socket.socket:
    made = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    made.setblocking(False)
    return made


def arrived(end: socket.socket):
    """All that has come in. A closed port on the other side is silence, as behind a router."""
    while True:
        try:
            yield end.recvfrom(65536)
        except ConnectionRefusedError:
            continue
        except BlockingIOError:
            return


def quietly(send, data: bytes) -> None:
    """A datagram that cannot be sent is a lost one."""
    with contextlib.suppress(OSError):
        send(data)


# ---- TCP ----------------------------------------------------------------------------------------

class Broken(Exception):
    """A connection that the relay has cut."""


class OneWay:
    """One direction of a connection."""

    def __init__(self, name: str, relay: "TcpRelay", reader, writer):
        self.name, self.relay, self.reader, self.writer = name, relay, reader, writer
        self.chance = Chance(relay.options, name)
        self.cut_at = self.chance.cut()
        self.queue: asyncio.Queue = asyncio.Queue(MOST_BLOCKS)

    async def run(self) -> None:
        await asyncio.gather(self.take(), self.deliver())

    # A lost block comes once its sender has noticed: that is all that a client sees of it.
    async def take(self) -> None:
        loop = asyncio.get_running_loop()
        offset, late = 0, 0.0
        while data := await self.reader.read(BLOCK - offset % BLOCK):
            if offset % BLOCK == 0:
                fate = self.chance.next()
                late = fate.late + (self.relay.options.resend / 1000 if fate.lost else 0)
                self.relay.record(self.name, "at", offset, fate)
            await self.queue.put((loop.time() + late, data))
            offset += len(data)
        await self.queue.put((loop.time(), b""))

    async def deliver(self) -> None:
        sent = 0
        while True:
            due, data = await self.queue.get()
            await asyncio.sleep(max(0.0, due - asyncio.get_running_loop().time()))
            if not data:
                self.writer.write_eof()
                return
            if self.cut_at is not None and sent + len(data) >= self.cut_at:
                await self.send(data[:self.cut_at - sent], sent)
                await self.cut()
            await self.send(data, sent)
            sent += len(data)

    async def send(self, data: bytes, offset: int) -> None:
        drip = None if self.chance.calm else self.relay.options.drip
        fast = len(data) if not drip else max(0, min(len(data), self.relay.options.drip_after - offset))
        if fast:
            self.writer.write(data[:fast])
            await self.writer.drain()
        for at in range(fast, len(data), drip[0] if drip else 1):
            self.writer.write(data[at:at + drip[0]])
            await self.writer.drain()
            await asyncio.sleep(drip[1] / 1000)

    async def cut(self) -> None:
        how = self.relay.options.cut_how
        self.relay.record(self.name, "cut at", self.cut_at, how)
        if how == "stall":
            await asyncio.Event().wait()
        raise Broken(how)


class TcpRelay:
    """Connections are numbered from 1 in the order in which they come."""

    def __init__(self, options: argparse.Namespace, record: Record):
        self.options, self.record = options, record
        self.count = 0

    async def start(self) -> tuple[str, int]:
        server = await asyncio.start_server(self.serve, *self.options.listen)
        return server.sockets[0].getsockname()[:2]

    async def serve(self, reader, writer) -> None:
        self.count += 1
        number = self.count
        try:
            back_reader, back_writer = await asyncio.open_connection(*self.options.to)
        except OSError:
            reset(writer)
            return
        up = asyncio.ensure_future(OneWay(f"{number}/up", self, reader, back_writer).run())
        down = asyncio.ensure_future(OneWay(f"{number}/down", self, back_reader, writer).run())
        broken = None
        try:
            await until_ended(up, down)
        except Broken as how:
            broken = str(how)
        except OSError:
            broken = "reset"
        for end in (writer, back_writer):
            reset(end) if broken == "reset" else end.close()


async def until_ended(up: asyncio.Future, down: asyncio.Future) -> None:
    """A client that has said its last word may still listen; one whose server has ended may not."""
    try:
        await asyncio.wait({up, down}, return_when=asyncio.FIRST_COMPLETED)
        for way in (up, down):
            if way.done():
                way.result()
        await asyncio.wait({up, down}, timeout=60, return_when=asyncio.ALL_COMPLETED)
        for way in (up, down):
            if way.done():
                way.result()
    finally:
        up.cancel()
        down.cancel()
        await asyncio.gather(up, down, return_exceptions=True)


def reset(writer) -> None:
    """Closes with a reset in place of the orderly end; nothing, when it has ended already."""
    with contextlib.suppress(OSError):
        writer.get_extra_info("socket").setsockopt(
            socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    writer.transport.abort()


# ---- options ------------------------------------------------------------------------------------

def place(text: str) -> tuple[str, int]:
    address, _, port = text.rpartition(":")
    return address or "127.0.0.1", int(port)


def share(text: str) -> float:
    value = float(text)
    if not 0 <= value <= 1:
        raise ValueError
    return value


def drip_rate(text: str) -> tuple[int, float]:
    size, _, time = text.partition("/")
    if int(size) < 1:
        raise ValueError
    return int(size), float(time)


def parse(arguments: list[str]) -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("protocol", choices=("tcp", "udp"))
    parser.add_argument("--to", type=place, required=True, help="the server")
    parser.add_argument("--listen", type=place, default=("127.0.0.1", 0), help="default: a free port")
    parser.add_argument("--seed", default="1")
    parser.add_argument("--direction", choices=("up", "down", "both"), default="both",
                        help="which way the weather is bad; default: both")
    parser.add_argument("--begin-after", type=int, default=0, metavar="N",
                        help="the first N datagrams or blocks each way are left alone")
    parser.add_argument("--loss", type=share, default=0, metavar="P",
                        help="share that is lost; of TCP, blocks of 16 KiB that come late")
    parser.add_argument("--resend", type=float, default=200, metavar="MS", help="TCP: how late")
    parser.add_argument("--delay", type=Range.read, default=Range(0, 0), metavar="MS|A..B")
    parser.add_argument("--duplicate", type=share, default=0, metavar="P", help="UDP: share that comes twice")
    parser.add_argument("--reorder", type=share, default=0, metavar="P",
                        help="UDP: share that comes later than what follows it")
    parser.add_argument("--reorder-by", type=float, default=50, metavar="MS", help="UDP: how much later")
    parser.add_argument("--cut-after", type=Range.read, metavar="N|A..B", help="TCP: bytes, each way")
    parser.add_argument("--cut-share", type=share, default=1, metavar="P", help="TCP: of the connections")
    parser.add_argument("--cut-how", choices=("close", "reset", "stall"), default="reset",
                        help="TCP: stall keeps the connection and passes nothing on")
    parser.add_argument("--drip", type=drip_rate, metavar="N/MS", help="TCP: N bytes each MS milliseconds")
    parser.add_argument("--drip-after", type=int, default=0, metavar="N", help="TCP: from the Nth byte")
    parser.add_argument("--record", metavar="FILE", help="what was decided, a line each")
    options = parser.parse_args(arguments)
    if options.protocol == "tcp" and (options.duplicate or options.reorder):
        parser.error("no client sees what is repeated or reordered below TCP")
    if options.protocol == "udp" and (options.cut_after or options.drip):
        parser.error("datagrams are neither cut nor dripped")
    return options


def main(arguments: list[str]) -> int:
    asyncio.run(serve(parse(arguments)))
    return 0


async def serve(options: argparse.Namespace) -> None:
    kind = UdpRelay if options.protocol == "udp" else TcpRelay
    relay = kind(options, Record(options.record))
    address, port = await relay.start()
    print(json.dumps({"address": address, "port": port}), flush=True)
    await asyncio.get_running_loop().run_in_executor(None, sys.stdin.buffer.read)
    os._exit(0)  # whatever connection is still open


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
