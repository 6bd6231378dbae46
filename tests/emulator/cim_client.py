# SPDX-License-Identifier: Apache-2.0
"""Speaks HTTP to the CIM server byte by byte, and reads the recordings of the real one."""

from __future__ import annotations

import base64
import re
import socket
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, Iterator, Mapping, Sequence
from xml.etree import ElementTree

from conftest import Bmc, trusting_everybody

RECORDINGS = Path(__file__).resolve().parents[1] / "pegasus" / "wire"
OWN_RECORDINGS = Path(__file__).resolve().parent / "wire"
SECONDS = 30.0

SERVICE_KEYS = {
    "CreationClassName": "ZOR_FFDCService",
    "Name": "FFDC",
    "SystemCreationClassName": "ZOR_ComputerSystem",
    "SystemName": "kem",
}


@dataclass
class Recorded:
    """One thing that one side sent, or a note on what happened."""

    title: str
    data: bytes

    @property
    def heads(self) -> list[tuple[str, str]]:
        return header_lines(self.data.partition(b"\r\n\r\n")[0])


def recording(file: Path) -> list[Recorded]:
    """The pieces of a recording in their order."""
    parts = re.split(r"^######## (.*)\n", "\n" + file.read_text(encoding="ascii"), flags=re.MULTILINE)
    return [
        Recorded(title, raw_bytes(text[:-1] if text.endswith("\n") else text))
        for title, text in zip(parts[1::2], parts[2::2])
    ]


def raw_bytes(text: str) -> bytes:
    """`<CR>` is the byte 0D, `<C3>` the byte C3."""
    text = text.replace("<CR>", "\r")
    pieces = re.split(r"<([0-9A-F]{2})>", text)
    return b"".join(
        bytes([int(piece, 16)]) if number % 2 else piece.encode("ascii")
        for number, piece in enumerate(pieces)
    )


def header_lines(head: bytes) -> list[tuple[str, str]]:
    lines = head.decode("latin-1").split("\r\n")[1:]
    return [(name, value.strip()) for name, _, value in (line.partition(":") for line in lines)]


@dataclass
class CimReply:
    """An answer as it came. `raw` is all of its bytes."""

    raw: bytes
    status: int
    headers: list[tuple[str, str]]
    body: bytes = b""
    trailer: dict[str, str] = field(default_factory=dict)

    def header(self, name: str) -> str | None:
        return next((v for k, v in self.headers if k.lower() == name.lower()), None)

    def xml(self) -> ElementTree.Element:
        return ElementTree.fromstring(self.body)

    def returned(self) -> tuple[str | None, str | None]:
        """Type and value of what a method returned."""
        element = self.xml().find(".//RETURNVALUE")
        assert element is not None, self.body
        return element.get("PARAMTYPE"), element.findtext("VALUE")

    def error(self) -> tuple[int, str | None] | None:
        """The CIM status and its description, from the ERROR element."""
        element = self.xml().find(".//ERROR")
        return None if element is None else (int(element.get("CODE", "")), element.get("DESCRIPTION"))

    def instances(self) -> list[dict[str, str | None]]:
        return [
            {p.get("NAME", ""): p.findtext("VALUE") for p in instance.findall("PROPERTY")}
            for instance in self.xml().iter("INSTANCE")
        ]


class Wire:
    """One connection."""

    def __init__(self, bmc: Bmc, tls: bool = False) -> None:
        ports = bmc.ready["cim"]
        port = ports["https_port"] if tls else ports["port"]
        self._socket: socket.socket = socket.create_connection((bmc.address, port), SECONDS)
        if tls:
            self._socket = trusting_everybody().wrap_socket(self._socket)
        self._held = b""

    @property
    def socket(self) -> Any:
        return self._socket

    def send(self, data: bytes) -> None:
        self._socket.sendall(data)

    def ask(self, data: bytes) -> CimReply:
        self.send(data)
        return self.receive()

    def receive(self) -> CimReply:
        """One answer, as far as its framing goes; refusals have no body and no length."""
        self._start = self._held
        head = self._until(b"\r\n\r\n")
        headers = header_lines(head[:-4])
        reply = CimReply(b"", int(head.split(b" ")[1]), headers)
        length = reply.header("content-length")
        if reply.header("transfer-encoding") == "chunked":
            reply.body, reply.trailer, more = self._chunks()
        elif length is not None:
            reply.body = more = self._exactly(int(length))
        else:
            more = b""
        reply.raw = head + more
        return reply

    def _chunks(self) -> tuple[bytes, dict[str, str], bytes]:
        body, raw = b"", b""
        while True:
            line = self._until(b"\r\n")
            size = int(line, 16)
            if size == 0:
                break
            data = self._exactly(size + 2)
            body += data[:-2]
            raw += line + data
        trailer = b""
        while (one := self._until(b"\r\n")) != b"\r\n":
            trailer += one
        lines = dict(header_lines(b"\r\n" + trailer[:-2])) if trailer else {}
        return body, lines, raw + line + trailer + one

    def _until(self, mark: bytes) -> bytes:
        while mark not in self._held:
            self._more()
        data, _, self._held = self._held.partition(mark)
        return data + mark

    def _exactly(self, size: int) -> bytes:
        while len(self._held) < size:
            self._more()
        data, self._held = self._held[:size], self._held[size:]
        return data

    def _more(self) -> None:
        data = self._socket.recv(1 << 20)
        if not data:
            raise ConnectionError(f"closed after {self._held!r}")
        self._held += data

    def rest(self) -> bytes:
        """Everything until the server closes."""
        data, self._held = self._held, b""
        while piece := self._socket.recv(1 << 20):
            data += piece
        return data

    def stays_open(self, seconds: float = 0.15) -> bool:
        """Whether nothing comes, not even the end."""
        self._socket.settimeout(seconds)
        try:
            return self._socket.recv(1) == b"never"
        except (TimeoutError, socket.timeout):
            return True
        finally:
            self._socket.settimeout(SECONDS)

    def close(self) -> None:
        self._socket.close()

    def __enter__(self) -> "Wire":
        return self

    def __exit__(self, *_: Any) -> None:
        self.close()


def basic(bmc: Bmc, encoding: str = "utf-8") -> dict[str, str]:
    pair = f"{bmc.user}:{bmc.password}".encode(encoding)
    return {"Authorization": "Basic " + base64.b64encode(pair).decode()}


def request(
    body: str, method: str, cim_object: str, headers: Mapping[str, str | None] = {},
    verb: str = "POST", version: str = "1.1",
) -> bytes:
    """A request; `headers` replace and (None) remove."""
    data = body.encode()
    lines: dict[str, str | None] = {
        "Host": "bmc",
        "Content-Type": "application/xml; charset=utf-8",
        "CIMOperation": "MethodCall",
        "CIMMethod": method,
        "CIMObject": cim_object,
        "Content-Length": str(len(data)),
        **headers,
    }
    text = "".join(f"{name}: {value}\r\n" for name, value in lines.items() if value is not None)
    return f"{verb} /cimom HTTP/{version}\r\n{text}\r\n".encode("latin-1") + data


def message(content: str, cim: str = "2.0", dtd: str = "2.0", protocol: str = "1.0", id_: str = "7") -> str:
    return (
        '<?xml version="1.0" encoding="utf-8" ?>\n'
        f'<CIM CIMVERSION="{cim}" DTDVERSION="{dtd}"><MESSAGE ID="{id_}" PROTOCOLVERSION="{protocol}">'
        f"<SIMPLEREQ>{content}</SIMPLEREQ></MESSAGE></CIM>"
    )


def namespace_xml(namespace: str) -> str:
    names = "".join(f'<NAMESPACE NAME="{name}"/>' for name in namespace.split("/"))
    return f"<LOCALNAMESPACEPATH>{names}</LOCALNAMESPACEPATH>"


def intrinsic(method: str, parameters: str, namespace: str = "root/cimv2") -> str:
    return f'<IMETHODCALL NAME="{method}">{namespace_xml(namespace)}{parameters}</IMETHODCALL>'


def class_parameter(name: str) -> str:
    return f'<IPARAMVALUE NAME="ClassName"><CLASSNAME NAME="{name}"/></IPARAMVALUE>'


def enumeration(
    class_name: str = "ZOR_FFDCData", namespace: str = "root/cimv2", headers: Mapping[str, str | None] = {},
    method: str = "EnumerateInstances", more: str = "", **shape: str,
) -> bytes:
    body = message(intrinsic(method, class_parameter(class_name) + more, namespace), **shape)
    return request(body, method, namespace.replace("/", "%2F"), headers)


def instance_name(class_name: str, keys: Mapping[str, str]) -> str:
    bindings = "".join(
        f'<KEYBINDING NAME="{name}"><KEYVALUE VALUETYPE="string">{xml_text(value)}</KEYVALUE></KEYBINDING>'
        for name, value in keys.items()
    )
    return f'<INSTANCENAME CLASSNAME="{class_name}">{bindings}</INSTANCENAME>'


def xml_text(text: str) -> str:
    for plain, escape in (("&", "&amp;"), ("<", "&lt;"), (">", "&gt;"), ('"', "&quot;")):
        text = text.replace(plain, escape)
    return re.sub(r"[\x00-\x1f\x7f]|^ | $", lambda m: f"&#{ord(m.group())};", text)


def parameter(name: str, type_: str | None, inner: str) -> str:
    typed = f' PARAMTYPE="{type_}"' if type_ else ""
    return f'<PARAMVALUE NAME="{name}"{typed}>{inner}</PARAMVALUE>'


def value(text: str) -> str:
    return f"<VALUE>{xml_text(text)}</VALUE>"


def reference(instance_id: str) -> str:
    return f"<VALUE.REFERENCE>{instance_name('ZOR_FFDCData', {'InstanceID': instance_id})}</VALUE.REFERENCE>"


def export_parameters(
    uri: str, user: str = "", password: str = "", instance_id: str = "ZOR:FFDC:1:1"
) -> list[str]:
    return [
        parameter("InitializationNeeded", "boolean", value("TRUE")),
        parameter("ExportURI", "string", value(uri)),
        parameter("Username", "string", value(user)),
        parameter("Password", "string", value(password)),
        parameter("DataCollectionType", "reference", reference(instance_id)),
    ]


def invocation(
    parameters: Sequence[str], headers: Mapping[str, str | None] = {}, method: str = "ExportData",
    class_name: str = "ZOR_FFDCService", keys: Mapping[str, str] = SERVICE_KEYS,
    namespace: str = "root/cimv2",
) -> bytes:
    path = f"<LOCALINSTANCEPATH>{namespace_xml(namespace)}{instance_name(class_name, keys)}</LOCALINSTANCEPATH>"
    call = f'<METHODCALL NAME="{method}">{path}{"".join(parameters)}</METHODCALL>'
    named = ",".join(f'{key}="{text}"' for key, text in keys.items())
    return request(message(call), method, f"{namespace}:{class_name}.{named}", headers)


def exchange(bmc: Bmc, data: bytes, tls: bool = False) -> CimReply:
    """One request on a connection of its own."""
    with Wire(bmc, tls) as wire:
        return wire.ask(data)


def call(bmc: Bmc, method: str, parameters: str, namespace: str = "root/cimv2", **headers: Any) -> CimReply:
    body = message(intrinsic(method, parameters, namespace))
    return exchange(bmc, request(body, method, namespace, headers))


def cim_requests(bmc: Bmc) -> list[dict[str, Any]]:
    return [entry for entry in bmc.requests() if entry["service"] == "cim"]


def pairs(file: Path) -> Iterator[tuple[str, bytes, bytes]]:
    """Case, request and answer of a recording of requests written by hand."""
    case, asked = "", b""
    for piece in recording(file):
        if piece.title.startswith("case "):
            case = piece.title[5:]
        elif piece.title == "request":
            asked = piece.data
        elif piece.title == "response":
            yield case, asked, piece.data
