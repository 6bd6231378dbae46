# SPDX-License-Identifier: Apache-2.0
"""The CIM server by itself: accounts, headers, namespaces, reading, connections."""

from __future__ import annotations

import base64
import ssl
from typing import Any, Iterator

import pytest

from cim_client import (
    SERVICE_KEYS, Wire, basic, call, class_parameter, cim_requests, enumeration, exchange,
    export_parameters, instance_name, invocation, message, request,
)
from conftest import Bmc, Starter

BOTH = pytest.mark.parametrize("tls", [False, True], ids=["plain", "tls"])
TE = {"TE": "chunked, trailers"}


@pytest.fixture(scope="module")
def open_bmc(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Bmc]:
    """Nobody is asked who he is."""
    starter = Starter(tmp_path_factory.mktemp("open"))
    yield starter({"cim": {"authentication": False, "export": {"upload": False}}})
    starter.stop_all()


def flag(name: str, text: str) -> str:
    return f'<IPARAMVALUE NAME="{name}"><VALUE>{text}</VALUE></IPARAMVALUE>'


# --- what it says about itself --------------------------------------------------------------


def test_the_ready_line_names_both_ports_and_the_archives(bmc: Bmc) -> None:
    facts = bmc.ready["cim"]

    assert facts["port"] != facts["https_port"] and min(facts["port"], facts["https_port"]) > 0
    assert list(facts["archives"]) == ["ZOR:FFDC:1:1", "ZOR:FFDC:2:2", "ZOR:FFDC:3:4"]
    assert len({a["sha256"] for a in facts["archives"].values()}) == 3
    assert len({a["name"] for a in facts["archives"].values()}) == 3


def test_ports_can_be_chosen(start: Starter) -> None:
    from stores import free_port
    import socket

    plain, secure = (free_port(socket.SOCK_STREAM) for _ in range(2))
    bmc = start(None, "--cim-port", str(plain), "--cim-https-port", str(secure))

    assert (bmc.ready["cim"]["port"], bmc.ready["cim"]["https_port"]) == (plain, secure)


def test_it_listens_on_ipv6(start: Starter) -> None:
    bmc = start({"cim": {"authentication": False}}, "--bind", "::1")

    assert exchange(bmc, enumeration()).status == 200
    assert exchange(bmc, enumeration(), tls=True).status == 200


# --- accounts -------------------------------------------------------------------------------


@BOTH
def test_without_credentials_a_challenge_comes_and_the_connection_stays(bmc: Bmc, tls: bool) -> None:
    with Wire(bmc, tls) as wire:
        refused = wire.ask(enumeration())
        accepted = wire.ask(enumeration(headers=basic(bmc)))

    assert refused.status == 401
    assert refused.headers == [
        ("PGErrorDetail", "User%20Unauthorized"),
        ("content-length", "0000000000"),
        ("WWW-Authenticate", 'Basic realm="127.0.0.1"'),
    ]
    assert len(accepted.instances()) == 3


@pytest.mark.parametrize("authorization", [
    "Basic " + base64.b64encode(b"admin:wrong").decode(), "Basic ???", "Basic", "Digest username=x", "",
])
def test_wrong_credentials_get_no_reason(bmc: Bmc, authorization: str) -> None:
    refused = exchange(bmc, enumeration(headers={"Authorization": authorization}))

    assert refused.status == 401
    assert refused.header("PGErrorDetail") is None


@pytest.mark.parametrize("encoding", ["utf-8", "latin-1"])
def test_a_password_with_other_letters_is_known_in_both_encodings(start: Starter, encoding: str) -> None:
    bmc = start({"password": 'pä"ß'})

    assert exchange(bmc, enumeration(headers=basic(bmc, encoding))).status == 200


@pytest.mark.parametrize("challenge, header", [
    (None, None), ('Digest realm="bmc", nonce="1"', 'Digest realm="bmc", nonce="1"'),
    ('basic realm="x"', 'basic realm="x"'),
])
def test_the_challenge_is_the_scenarios(start: Starter, challenge: Any, header: Any) -> None:
    refused = exchange(start({"cim": {"challenge": challenge}}), enumeration())

    assert (refused.status, refused.header("WWW-Authenticate")) == (401, header)


# --- headers --------------------------------------------------------------------------------


@pytest.mark.parametrize("asked, status, cim_error", [
    pytest.param(enumeration(headers={"CIMOperation": "Batch"}), 400, "unsupported-operation", id="operation"),
    pytest.param(enumeration(protocol="2.0", headers={"CIMProtocolVersion": "2.0"}), 501,
                 "unsupported-protocol-version", id="protocol 2.0"),
    pytest.param(enumeration(headers={"CIMProtocolVersion": "1.3"}), 400, "header-mismatch", id="protocol"),
    pytest.param(invocation([]).replace(b"Name=\"FFDC\"", b"Name=\"other\"", 1), 400, "header-mismatch", id="key"),
    pytest.param(request(message("<IMETHODCALL/>"), "X", "x"), 400, "request-not-valid", id="nothing"),
    pytest.param(request(message("<OTHER/>"), "X", "x"), 400, "request-not-valid", id="other element"),
    pytest.param(request('<?xml version="1.0"?><!DOCTYPE a [<!ENTITY b "c">]><a>&b;</a>', "X", "x"), 400,
                 "request-not-well-formed", id="document type"),
    pytest.param(request('<?xml version="1.0"?>' + "<a>" * 100000, "X", "x"), 400,
                 "request-not-well-formed", id="deep"),
    pytest.param(request('<?xml version="1.0"?><a>&unknown;</a>', "X", "x"), 400,
                 "request-not-well-formed", id="entity"),
    pytest.param(request('<?xml version="1.0"?><a>&#xD800;</a>', "X", "x"), 400,
                 "request-not-well-formed", id="half a character"),
    pytest.param(request('<?xml version="1.0"?><a b="1" b="2"/>', "X", "x"), 400,
                 "request-not-well-formed", id="attribute twice"),
    pytest.param(enumeration()[:-20] + b"x" * 20, 400, "request-not-well-formed", id="cut"),
])
def test_a_request_is_refused_without_a_length(
    open_bmc: Bmc, asked: bytes, status: int, cim_error: str
) -> None:
    with Wire(open_bmc) as wire:
        refused = wire.ask(asked)
        assert (refused.status, refused.header("CIMError")) == (status, cim_error)
        assert refused.header("content-length") is None
        assert len(wire.ask(enumeration()).instances()) == 3, "the connection goes on"


def test_a_newer_minor_version_is_taken_where_both_say_so(open_bmc: Bmc) -> None:
    asked = enumeration(protocol="1.4", cim="2.9", dtd="2.4", headers={"CIMProtocolVersion": "1.4"})
    assert len(exchange(open_bmc, asked).instances()) == 3


def test_a_request_in_chunks_is_read(open_bmc: Bmc) -> None:
    whole = enumeration(headers={"Content-Length": None, "Transfer-Encoding": "chunked"})
    head, _, body = whole.partition(b"\r\n\r\n")
    pieces = b"".join(b"%x\r\n%s\r\n" % (len(body[n:n + 50]), body[n:n + 50]) for n in range(0, len(body), 50))

    assert len(exchange(open_bmc, head + b"\r\n\r\n" + pieces + b"0\r\n\r\n").instances()) == 3


def test_who_waits_to_be_told_to_go_on_is_told(open_bmc: Bmc) -> None:
    head, _, body = enumeration(headers={"Expect": "100-continue"}).partition(b"\r\n\r\n")
    with Wire(open_bmc) as wire:
        wire.send(head + b"\r\n\r\n")
        assert wire.receive().status == 100
        assert len(wire.ask(body).instances()) == 3


@pytest.mark.parametrize("data", [b"\x16\x03\x01\x02", b"get / HTTP/1.1\r\n\r\n", b"POST /\r\n\r\n",
                                  b"POST /cimom HTTP/1.1\r\nno colon\r\n\r\n",
                                  b"POST /cimom HTTP/1.1\r\nContent-Length: x\r\n\r\n",
                                  b"POST /cimom HTTP/1.1\r\nContent-Length: 99999999999\r\n\r\n",
                                  b"PUT /cimom HTTP/1.1\r\n\r\n",
                                  b"A" * 100000])
def test_what_is_no_request_is_turned_away(open_bmc: Bmc, data: bytes) -> None:
    with Wire(open_bmc) as wire:
        wire.send(data)
        try:
            assert wire.rest() == b"HTTP/1.1 501 Not Implemented\r\n\r\n"
        except ConnectionResetError:
            assert len(data) > 65536  # it did not read all of this
    assert exchange(open_bmc, enumeration()).status == 200


# --- errors with and without trailers -------------------------------------------------------


@pytest.mark.parametrize("asked, code, text", [
    (lambda more: enumeration(namespace="root/other", headers=more), 3, "CIM_ERR_INVALID_NAMESPACE: root/other"),
    (lambda more: enumeration("ZOR_No", headers=more), 5, "CIM_ERR_INVALID_CLASS: ZOR_No"),
    (lambda more: invocation([], more, class_name="ZOR_No"), 6, "CIM_ERR_NOT_FOUND: ZOR_No"),
    (lambda more: invocation([], more, method="Nope"), 16, "CIM_ERR_METHOD_NOT_AVAILABLE: Nope"),
    (lambda more: enumeration(method="CreateClass", headers=more), 7, "CIM_ERR_NOT_SUPPORTED: CreateClass"),
    (lambda more: enumeration(more=flag("Bogus", "x"), headers=more), 4, "CIM_ERR_INVALID_PARAMETER: Bogus"),
    (lambda more: enumeration(more=flag("LocalOnly", "x"), headers=more), 4,
     "CIM_ERR_INVALID_PARAMETER: LocalOnly"),
])
def test_an_error_stands_in_the_trailer_or_in_an_element(
    open_bmc: Bmc, asked: Any, code: int, text: str
) -> None:
    trailing, plain = exchange(open_bmc, asked(TE)), exchange(open_bmc, asked({}))

    encoded = text.replace(":", "%3A").replace(" ", "%20").replace("/", "%2F")
    assert trailing.trailer == {"CIMStatusCode": str(code), "CIMStatusCodeDescription": encoded}
    assert trailing.error() is None and trailing.status == plain.status == 200
    assert plain.error() == (code, text)
    assert plain.header("transfer-encoding") is None


def test_an_extended_request_can_have_trailers_too(open_bmc: Bmc) -> None:
    headers = {
        **TE, "Man": '"http://www.dmtf.org/cim/mapping/http/v1.0" ; ns=10', "CIMOperation": None,
        "CIMMethod": None, "CIMObject": None, "10-CIMOperation": "MethodCall",
        "10-CIMMethod": "EnumerateInstances", "10-CIMObject": "root%2Fcimv2",
    }
    asked = enumeration("ZOR_No", headers=headers).replace(b"POST", b"M-POST", 1)
    answer = exchange(open_bmc, asked)

    assert answer.trailer["CIMStatusCode"] == "5"
    number = answer.header("Man").rpartition("=")[2]
    assert answer.header(f"{number}-CIMOperation") == "MethodResponse"


def test_an_extended_request_without_its_declaration_is_refused(open_bmc: Bmc) -> None:
    assert exchange(open_bmc, enumeration().replace(b"POST", b"M-POST", 1)).status == 400


# --- reading --------------------------------------------------------------------------------


def test_the_data_objects_are_the_scenarios(start: Starter) -> None:
    bmc = start({"cim": {"authentication": False, "data": [
        3, " 4 ", None,
        {"type": 1, "id": "own", "without": ["Progress", "Caption"], "properties": {
            "Present": False, "Extra": "text", "Many": [1, 2], "Nothing": {"type": "uint8", "value": None},
            "Mapped": {"type": "uint16", "value": 2, "value_map": {"1": "one", "2": "two"}}}},
    ]}})
    answer = exchange(bmc, enumeration())
    first, second, third, fourth = answer.instances()

    assert [one["DataCollectionType"] for one in (first, second, third, fourth)] == ["3", " 4 ", None, "1"]
    assert [one["InstanceID"] for one in (first, second, third)] == ["ZOR:FFDC:1:3", "ZOR:FFDC:2: 4 ", "ZOR:FFDC:3:"]
    assert "Progress" not in fourth and fourth["Present"] == "FALSE" and fourth["Extra"] == "text"
    mapped = answer.xml().find(".//PROPERTY[@NAME='Mapped']")
    texts = {q.get("NAME"): [v.text for v in q.iter("VALUE")] for q in mapped.findall("QUALIFIER")}
    assert texts == {"ValueMap": ["1", "2"], "Values": ["one", "two"]}


@pytest.mark.parametrize("count", [0, 3])
def test_there_are_as_many_services_as_the_scenario_says(start: Starter, count: int) -> None:
    bmc = start({"cim": {"authentication": False, "services": count, "data": []}})

    assert len(exchange(bmc, enumeration("ZOR_FFDCService")).instances()) == count
    assert exchange(bmc, enumeration()).instances() == []


def test_namespaces_are_the_scenarios_in_any_case(start: Starter) -> None:
    bmc = start({"cim": {"authentication": False, "namespaces": ["zor/kem7/cimv2"]}})

    assert len(exchange(bmc, enumeration(namespace="ZOR/kem7/CIMV2")).instances()) == 3
    assert exchange(bmc, enumeration()).error() == (3, "CIM_ERR_INVALID_NAMESPACE: root/cimv2")


def test_only_listed_properties_are_returned(open_bmc: Bmc) -> None:
    names = ('<IPARAMVALUE NAME="PropertyList"><VALUE.ARRAY><VALUE>datacollectiontype</VALUE>'
             "<VALUE>Unknown</VALUE></VALUE.ARRAY></IPARAMVALUE>")
    answer = exchange(open_bmc, enumeration(more=names))

    assert [list(one) for one in answer.instances()] == [["DataCollectionType"]] * 3


def test_flags_of_an_enumeration_are_taken(open_bmc: Bmc) -> None:
    flags = "".join(flag(name, text) for name, text in (
        ("LocalOnly", "false"), ("DeepInheritance", "TRUE"), ("IncludeQualifiers", "True"),
        ("IncludeClassOrigin", "TRUE")))
    answer = exchange(open_bmc, enumeration(more=flags))

    origins = {one.get("CLASSORIGIN") for one in answer.xml().iter("PROPERTY")}
    assert origins == {"ZOR_FFDCData"}
    assert answer.xml().find(".//QUALIFIER") is None


def test_one_object_can_be_read(open_bmc: Bmc) -> None:
    def named(class_name: str, keys: dict) -> str:
        return f'<IPARAMVALUE NAME="InstanceName">{instance_name(class_name, keys)}</IPARAMVALUE>'

    found = call(open_bmc, "GetInstance", named("ZOR_FFDCService", SERVICE_KEYS))
    assert [one["EnabledState"] for one in found.instances()] == ["2"]
    missing = call(open_bmc, "GetInstance", named("ZOR_FFDCData", {"InstanceID": "no"}))
    assert missing.error() == (6, 'CIM_ERR_NOT_FOUND: ZOR_FFDCData.InstanceID="no"')
    assert call(open_bmc, "GetInstance", named("ZOR_No", {})).error()[0] == 5


def test_the_classes_can_be_listed(open_bmc: Bmc) -> None:
    listed = call(open_bmc, "EnumerateClassNames", "").xml().iter("CLASSNAME")
    assert [one.get("NAME") for one in listed] == ["ZOR_FFDCService", "ZOR_FFDCData"]
    below = call(open_bmc, "EnumerateClassNames", class_parameter("ZOR_FFDCData"))
    assert below.error() is None and below.xml().find(".//CLASSNAME") is None


# --- connections ----------------------------------------------------------------------------


@BOTH
def test_one_connection_serves_many_requests(open_bmc: Bmc, tls: bool) -> None:
    with Wire(open_bmc, tls) as wire:
        before = len(cim_requests(open_bmc))
        for number in range(30):
            assert wire.ask(enumeration(headers=TE if number % 2 else {})).status == 200
    recorded = cim_requests(open_bmc)[before:]
    assert len(recorded) == 30
    assert len({one["connection"] for one in recorded}) == 1


def test_requests_sent_ahead_are_answered_in_their_order(open_bmc: Bmc) -> None:
    with Wire(open_bmc) as wire:
        wire.send(b"".join(enumeration(id_=str(n)) for n in range(5)))
        numbers = [wire.receive().xml().find("MESSAGE").get("ID") for _ in range(5)]
    assert numbers == ["0", "1", "2", "3", "4"]


def test_tls_is_of_version_1_2(open_bmc: Bmc) -> None:
    with Wire(open_bmc, tls=True) as wire:
        assert wire.socket.version() == "TLSv1.2"
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
    context.check_hostname, context.verify_mode = False, ssl.CERT_NONE
    context.minimum_version = ssl.TLSVersion.TLSv1_3
    with Wire(open_bmc) as wire, pytest.raises(ssl.SSLError):
        context.wrap_socket(wire.socket)


def test_an_export_on_one_connection_does_not_hold_up_another(start: Starter) -> None:
    bmc = start({"cim": {"authentication": False, "export": {"upload": False, "seconds": 30}}})
    with Wire(bmc) as busy:
        busy.send(invocation(export_parameters("sftp://h/")))
        assert exchange(bmc, enumeration()).status == 200
