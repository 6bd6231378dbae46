# SPDX-License-Identifier: Apache-2.0
"""What hostile BMCs do, and what the tool has to make of it."""

import dataclasses
import struct
from typing import Optional

import http_front as http
from sftp_service import NAME, Plan, text

MIB = 1 << 20
ROOT, SESSIONS = "GET /redfish/v1/", "POST */Sessions"
PROBE = "GET */Tasks/8A6CA3D3EC"
EXPORT, TASK, ARCHIVE = "POST *ExportFFDCData", "GET */Tasks/*", "GET /download/*"
CHALLENGE = "anyone EnumerateInstances ZOR_FFDCService"
SERVICES, OBJECTS = "EnumerateInstances ZOR_FFDCService", "EnumerateInstances ZOR_FFDCData"
METHOD = "ExportData ZOR_FFDCService"


@dataclasses.dataclass
class Case:
    """One thing that a BMC does."""

    channel: str
    text: str
    codes: tuple  # that the tool may end with
    bad: tuple = ()  # of the HTTP front
    plan: Optional[Plan] = None  # of the SFTP service
    scenario: dict = dataclasses.field(default_factory=dict)  # of the emulated BMC behind
    options: tuple = ()  # of the tool
    library: bool = True  # False: a host that waits for ever for such a BMC does what it was told
    seconds: int = 60
    cut: bool = True  # False: the answer is small, and its sense may well not be known
    quick: bool = False  # one of the few that every test run plays


# JSON, as much as the library takes of a body; arrays and members are far more than its reader takes.
MOST_JSON = 16 * MIB - 1024
ARRAY = http.repeated(b"[", b"0,", b"0]", MOST_JSON)
MEMBERS = http.repeated(b'{"a": 0', b',"a":0', b"}", MOST_JSON)
ESCAPES = http.repeated(b'{"RedfishVersion": "', b"\\u0000", b'"}', MOST_JSON)
CONTROLS = http.filled(16 * MIB, b"\x1b")  # four times as long in a log
LONG_ID = http.repeated(b'{"Id": "', b"\\u0041", b'"}', MOST_JSON)
DOTS = http.repeated(b'{"RedfishVersion": "', b".", b'"}', MOST_JSON)
OBJECTS_IN = http.repeated(b"", b'{"a":', b"1", MOST_JSON)

# CIM-XML: parts put into the BMC's own answer.
INSTANCE_NAME = rb"<INSTANCENAME [^>]*>"
PROPERTY = rb"<PROPERTY [^>]*>"
REFERENCE = b'<KEYBINDING NAME="k"><VALUE.REFERENCE><INSTANCENAME CLASSNAME="c">'
REFERENCE_END = b"</INSTANCENAME></VALUE.REFERENCE></KEYBINDING>"
LEVEL = len(REFERENCE + REFERENCE_END)
KEY = b'<KEYBINDING NAME="k"><KEYVALUE>1</KEYVALUE></KEYBINDING>'
NESTED = 60  # levels that the reader takes


def nested(depth):
    return REFERENCE * depth + KEY + REFERENCE_END * depth


def values(size):
    return (b'<PROPERTY.ARRAY NAME="A" TYPE="string"><VALUE.ARRAY>' + b"<VALUE/>" * (size // 8)
            + b"</VALUE.ARRAY></PROPERTY.ARRAY>")


def qualifiers(count):
    return b"".join(b'<QUALIFIER NAME="Q%d" TYPE="string"><VALUE>x</VALUE></QUALIFIER>' % n for n in range(count))


def properties(count):
    return b"".join(b'<PROPERTY NAME="P%d" TYPE="string"><VALUE>x</VALUE></PROPERTY>' % n for n in range(count))


def origins(count):
    return b"".join(b'<PROPERTY NAME="P%d" TYPE="string" CLASSORIGIN="c"/>' % n for n in range(count))


def skipped_objects(count, key):
    return (b'<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME="c"><KEYBINDING NAME="k"><KEYVALUE>' + key
            + b'</KEYVALUE></KEYBINDING></INSTANCENAME><INSTANCE CLASSNAME="c"><PROPERTY NAME="DataCollectionType" '
            + b'TYPE="string"><VALUE>4</VALUE></PROPERTY></INSTANCE></VALUE.NAMEDINSTANCE>') * count


def object_of_type(property_):
    return (b'<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME="c"/><INSTANCE CLASSNAME="c">' + property_
            + b"</INSTANCE></VALUE.NAMEDINSTANCE>")


def lying_names(number):
    """A packet that announces 4 billion names and holds none."""
    payload = number + struct.pack(">I", 0xFFFFFFFF)
    return struct.pack(">IB", len(payload) + 1, NAME) + payload


def lying_length(number):
    """A packet that announces 2 GiB."""
    return struct.pack(">IB", 0x7FFFFFFF, NAME) + number + bytes(1000)


def long_name(number):
    """One name of 200 KB, then another, for ever."""
    payload = number + struct.pack(">I", 1) + text(b"n" * 200000) * 2 + struct.pack(">I", 0)
    return struct.pack(">IB", len(payload) + 1, NAME) + payload


def redfish(*arguments, **more):
    return Case("redfish", *arguments, **more)


def cim(*arguments, **more):
    return Case("cim", *arguments, **more)


def ipmi(*arguments, **more):
    return Case("ipmi", *arguments, **more)


CASES = [
    redfish("an ordinary archive", (0,), quick=True),
    redfish("service root: 3 GiB", (3,), ((ROOT, http.filled(http.MOST)),), quick=True),
    redfish("service root: chunks without end", (3,), ((ROOT, http.chunks_for_ever),)),
    redfish("service root: a chunk size without end", (3,), ((ROOT, http.chunk_size_for_ever),)),
    redfish("service root: trailers without end", (3,), ((ROOT, http.trailers_for_ever),), quick=True),
    redfish("service root: headers without end", (3,), ((ROOT, http.headers_for_ever),), quick=True),
    redfish("service root: one header without end", (3,), ((ROOT, http.header_for_ever),)),
    redfish("service root: interim answers without end", (3,), ((ROOT, http.interim_for_ever),), quick=True),
    redfish("service root: 16 MiB of `[0,0,...`", (3,), ((ROOT, ARRAY),), quick=True),
    redfish("service root: 16 MiB of `{\"a\":0,...`", (3,), ((ROOT, MEMBERS),)),
    redfish("service root: 16 MiB of `{\"a\":{\"a\":...`", (3,), ((ROOT, OBJECTS_IN),)),
    redfish("service root: a version of 16 MiB of escapes", (3, 0), ((ROOT, ESCAPES),)),
    redfish("service root: a version of 16 MiB of dots", (3, 0), ((ROOT, DOTS),)),
    redfish("service root: compressed, 3 GiB when unpacked", (3,), ((ROOT, http.gzip_bomb),)),
    redfish("service root: half of the JSON, as if it were all", (3,), ((ROOT, http.half),)),
    redfish("service root: cut in the middle", (3,), ((ROOT, http.cut),)),
    redfish("service root: 50 bytes a second", (6,), ((ROOT, http.dripped),), options=("--deadline", "5"),
            library=False),
    redfish("service root, from the second on: 16 MiB of `[0,0,...`", (0, 3, 4), ((1, ROOT, ARRAY),)),
    redfish("all answers: a first header line that begins with a blank", (3,), (("* *", http.blank_led_header),)),
    redfish("session: a first header line that begins with a blank", (3, 7), ((SESSIONS, http.blank_led_header),)),
    redfish("export: a first header line that begins with a blank", (4,), ((EXPORT, http.blank_led_header),),
            quick=True),
    redfish("probe: 16 MiB of control bytes", (0, 3), ((PROBE, CONTROLS),), quick=True),
    redfish("export: an Id of 16 MiB of escapes", (4, 5), ((EXPORT, LONG_ID),)),
    redfish("task: 16 MiB of control bytes", (5,), ((TASK, CONTROLS),), cut=False),
    redfish("export: 3 GiB", (4,), ((EXPORT, http.filled(http.MOST)),), quick=True),
    redfish("export: 16 MiB of `[0,0,...`", (4,), ((EXPORT, ARRAY),), quick=True),
    redfish("export: one header without end", (4,), ((EXPORT, http.header_for_ever),)),
    redfish("export: headers without end", (3, 4), ((EXPORT, http.headers_for_ever),)),
    redfish("export: interim answers without end", (3, 4), ((EXPORT, http.interim_for_ever),)),
    redfish("export: half of the JSON, as if it were all", (4,), ((EXPORT, http.half),)),
    redfish("task: a first header line that begins with a blank", (3, 5), ((TASK, http.blank_led_header),), quick=True),
    redfish("task: 3 GiB, each time", (3, 5, 6), ((TASK, http.filled(http.MOST)),)),
    redfish("task: 16 MiB of `[0,0,...`, each time", (5, 6), ((TASK, ARRAY),)),
    redfish("task: headers without end, each time", (3, 5, 6), ((TASK, http.headers_for_ever),)),
    redfish("task: trailers without end, each time", (3, 5, 6), ((TASK, http.trailers_for_ever),)),
    redfish("task: half of the JSON, each time", (5, 6), ((TASK, http.half),), cut=False),
    redfish("archive without end", (7,), ((ARCHIVE, http.chunks_for_ever),), options=("--max-size", "64M"),
            library=False, quick=True),
    redfish("archive: half of what was announced", (7,), ((ARCHIVE, http.cut),)),
    redfish("archive: 50 bytes a second", (6,), ((ARCHIVE, http.dripped),), options=("--deadline", "5"),
            library=False, quick=True),
    redfish("archive: headers without end", (7,), ((ARCHIVE, http.headers_for_ever),)),

    cim("an ordinary export", (0,), quick=True),
    cim("first answer: 3 GiB", (3,), ((CHALLENGE, http.filled(http.MOST)),)),
    cim("first answer: trailers without end", (3,), ((CHALLENGE, http.trailers_for_ever),)),
    cim("first answer: headers without end", (3,), ((CHALLENGE, http.headers_for_ever),)),
    cim("services: 3 GiB", (3, 4), ((SERVICES, http.filled(http.MOST)),), quick=True),
    cim("services: chunks without end", (3, 4), ((SERVICES, http.chunks_for_ever),)),
    cim("services: a chunk size without end", (3, 4), ((SERVICES, http.chunk_size_for_ever),)),
    cim("services: trailers without end", (3, 4), ((SERVICES, http.trailers_for_ever),), quick=True),
    cim("services: headers without end", (3, 4), ((SERVICES, http.headers_for_ever),), quick=True),
    cim("services: one header without end", (3, 4), ((SERVICES, http.header_for_ever),)),
    cim("services: interim answers without end", (3, 4), ((SERVICES, http.interim_for_ever),), quick=True),
    cim("services: a first header line that begins with a blank", (3, 4), ((SERVICES, http.blank_led_header),),
        quick=True),
    cim("services: 50 bytes a second", (6,), ((SERVICES, http.dripped),), options=("--deadline", "5"), library=False),
    cim("services: half of the XML, as if it were all", (3, 4), ((SERVICES, http.half),)),
    cim("services: cut in the middle", (3, 4), ((SERVICES, http.cut),)),
    cim("services: references as keys, 60 levels, 16 MiB", (0, 3, 4),
        ((SERVICES, http.edited(INSTANCE_NAME, nested(NESTED) * (16 * MIB // (LEVEL * NESTED)))),), quick=True),
    cim("services: references as keys, 16 MiB deep", (3, 4),
        ((SERVICES, http.edited(INSTANCE_NAME, nested(16 * MIB // LEVEL))),)),
    cim("objects: 16 MiB of `<VALUE/>`", (0, 3, 4),
        ((OBJECTS, http.edited(rb"<INSTANCE [^>]*>", values(15 * MIB))),), quick=True),
    cim("objects: 32,000 qualifiers of a property", (0, 3, 4),
        ((OBJECTS, http.edited(PROPERTY, qualifiers(32000))),), quick=True),
    cim("objects: 200,000 qualifiers of a property", (0, 3, 4),
        ((OBJECTS, http.edited(PROPERTY, qualifiers(200000))),)),
    cim("objects: 200,000 properties of an object", (0, 3, 4),
        ((OBJECTS, http.edited(rb"<INSTANCE [^>]*>", properties(200000))),)),
    cim("objects: 3 GiB", (3, 4), ((OBJECTS, http.filled(http.MOST)),)),
    cim("objects: 230,000 properties with class origins", (0, 3, 4),
        ((OBJECTS, http.edited(rb"<INSTANCE [^>]*>", origins(230000))),)),
    cim("objects: 16,000 that are never exported, with paths of control bytes", (0, 3, 4),
        ((OBJECTS, http.edited(b"<IRETURNVALUE>", skipped_objects(16000, b"\x01" * 600))),), quick=True),
    cim("objects: a type of 1 MiB of quotation marks", (0, 3, 4),
        ((OBJECTS, http.edited(b"<IRETURNVALUE>", object_of_type(
            b'<PROPERTY NAME="DataCollectionType" TYPE="string"><VALUE>' + b'"' * MIB + b"</VALUE></PROPERTY>"))),)),
    cim("objects: a type of 250,000 real numbers", (0, 3, 4),
        ((OBJECTS, http.edited(b"<IRETURNVALUE>", object_of_type(
            b'<PROPERTY.ARRAY NAME="DataCollectionType" TYPE="real64"><VALUE.ARRAY>' + b"<VALUE>1</VALUE>" * 250000
            + b"</VALUE.ARRAY></PROPERTY.ARRAY>"))),)),
    cim("services: a path of 256 KiB of quotation marks", (0, 3, 4),
        ((SERVICES, http.edited(INSTANCE_NAME, b'<KEYBINDING NAME="q"><KEYVALUE>' + b'"' * 260000
                                + b"</KEYVALUE></KEYBINDING>")),)),
    cim("export: 3 GiB", (3, 4), ((METHOD, http.filled(http.MOST)),), quick=True),
    cim("export: 50 bytes a second", (6,), ((METHOD, http.dripped),), options=("--deadline", "5"), library=False),

    ipmi("an ordinary gathering", (0,), plan=Plan(), quick=True),
    ipmi("account: length of the name overruns", (7,), plan=Plan(),
         scenario={"answers": {"credential": [{"data": "ff 72 6f 6f 74", "repeat": True}]}}, quick=True),
    ipmi("account: length of the password overruns", (7,), plan=Plan(),
         scenario={"answers": {"credential": [{"data": "01 61 ff 62", "repeat": True}]}}),
    ipmi("account: an answer of 240 bytes 0xFF", (7,), plan=Plan(),
         scenario={"answers": {"credential": [{"data": "ff " * 240, "repeat": True}]}}),
    ipmi("listing without end", (7, 9), plan=Plan(endless_names=True), quick=True),
    ipmi("listing: 4 billion names announced", (7,), plan=Plan(raw_listing=lying_names)),
    ipmi("listing: a packet of 2 GiB announced", (7,), plan=Plan(raw_listing=lying_length)),
    ipmi("listing: names of 200 KB without end", (7, 9), plan=Plan(raw_listing=long_name)),
    ipmi("file without end", (7,), plan=Plan(names=((b"a.tgz", 100),), size=1 << 62, zeros=1 << 62),
         options=("--max-size", "64M"), library=False, quick=True),
    ipmi("file: half of what was announced", (7, 9), plan=Plan(names=((b"a.tgz", MIB),), size=MIB, zeros=MIB // 2)),
    ipmi("file: double of what was announced", (0, 7, 9), plan=Plan(names=((b"a.tgz", MIB),), size=MIB, zeros=2 * MIB)),
]
