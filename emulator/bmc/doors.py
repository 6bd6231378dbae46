# SPDX-License-Identifier: Apache-2.0
"""Which of the BMC's services can be reached: open, closed, or behind a filter that swallows everything.

A port that is not open stays taken all the same, so that nobody else answers on it.
"""

from __future__ import annotations

import contextlib
import socket
from dataclasses import dataclass, field
from typing import Any

from bmc.scenario import Checker, MemberPath

SERVICES = ("redfish", "cim", "cim-https", "ipmi")
_SEND_BUFFER = 4 * 1024 * 1024  # bytes; a whole chunk leaves with one system call
_DISCARD = 9  # a port that never sends


@dataclass
class Doors:
    """The services that are not open, by name, and what keeps them so."""

    closed: frozenset[str] = frozenset()
    filtered: frozenset[str] = frozenset()
    _held: list[socket.socket] = field(default_factory=list)

    def is_open(self, service: str) -> bool:
        return service not in self.closed and service not in self.filtered

    def listener(self, service: str, address: str, port: int) -> socket.socket:
        """A TCP socket on the port (0: a free one); it listens if the service is open."""
        listener = _bound(socket.SOCK_STREAM, address, port)
        try:
            self._set(service, listener)
        except OSError:
            listener.close()
            raise
        return listener

    def _set(self, service: str, listener: socket.socket) -> None:
        if self.is_open(service):
            listener.listen(128)
            listener.setblocking(False)
            return
        self._held.append(listener)  # bound and not listening: connections are refused
        if service in self.filtered:
            self._fill(listener)

    def _fill(self, listener: socket.socket) -> None:
        """A queue that is full: the kernel drops what else comes, as a packet filter does."""
        listener.listen(0)
        for _ in range(2):
            visitor = socket.socket(listener.family, socket.SOCK_STREAM)
            visitor.setblocking(False)
            with contextlib.suppress(BlockingIOError):
                visitor.connect(listener.getsockname())
            self._held.append(visitor)

    def hold_udp(self, address: str, port: int) -> int:
        """Takes a UDP port and turns datagrams away; the port."""
        holder = _bound(socket.SOCK_DGRAM, address, port)
        holder.connect((address, _DISCARD))  # from now on it knows one peer, who never sends
        self._held.append(holder)
        return holder.getsockname()[1]


def _bound(kind: socket.SocketKind, address: str, port: int) -> socket.socket:
    family = socket.AF_INET6 if ":" in address else socket.AF_INET
    one = socket.socket(family, kind)
    try:
        if kind == socket.SOCK_STREAM:
            one.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            one.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, _SEND_BUFFER)
        one.bind(socket.getaddrinfo(address, port, family, kind)[0][4])
    except OSError:
        one.close()
        raise
    return one


def read_closed(check: Checker, value: Any) -> frozenset[str]:
    """Reads `closed`."""
    return _read(check, value, ("closed",), SERVICES)


def read_filtered(check: Checker, value: Any) -> frozenset[str]:
    """Reads `filtered`; for IPMI that is `ipmi.silent`."""
    return _read(check, value, ("filtered",), SERVICES[:-1])


def _read(check: Checker, value: Any, path: MemberPath, allowed: tuple[str, ...]) -> frozenset[str]:
    names = check.sequence([] if value is None else value, path)
    return frozenset(check.choice(name, path + (n,), allowed) for n, name in enumerate(names))
