# SPDX-License-Identifier: Apache-2.0
"""Answers that a client must survive: each one is sent exactly as the scenario says."""

from __future__ import annotations

import re
import sys
import time
from typing import Any, Mapping

import pytest

from cim_client import CimReply, Wire, cim_requests, enumeration, exchange, invocation
from conftest import EMULATOR, Bmc, Starter

sys.path.insert(0, str(EMULATOR))
from bmc.cim.answers import MEMBERS  # noqa: E402
from bmc.cim.settings import MEMBERS as SECTION  # noqa: E402
from bmc.cim.settings import read_cim  # noqa: E402
from bmc.scenario import load  # noqa: E402

TE = {"TE": "chunked, trailers"}
ASK = enumeration()


def faulty(start: Starter, *answers: Mapping[str, Any], key: str = "EnumerateInstances", **more: Any) -> Bmc:
    return start({"cim": {"authentication": False, "answers": {key: list(answers)}, **more}})


# --- which answer comes when ----------------------------------------------------------------


def test_answers_are_used_up_in_their_order(start: Starter) -> None:
    bmc = faulty(start, {"status": 503}, {}, {"status": 400, "repeat": True})

    assert [exchange(bmc, ASK).status for _ in range(5)] == [503, 200, 400, 400, 400]


def test_the_most_exact_key_goes_first(start: Starter) -> None:
    bmc = start({"cim": {"authentication": False, "answers": {
        "*": [{"status": 500}], "EnumerateInstances": [{"status": 501}],
        "EnumerateInstances ZOR_FFDCData": [{"status": 502}]}}})

    assert [exchange(bmc, ASK).status for _ in range(4)] == [502, 501, 500, 200]


def test_a_request_that_is_refused_uses_up_no_answer(start: Starter) -> None:
    bmc = start({"password": "p", "cim": {"answers": {"*": [{"status": 503}]}}})

    assert exchange(bmc, ASK).status == 401
    assert exchange(bmc, enumeration(headers={"Authorization": "Basic YWRtaW46cA=="})).status == 503


# --- statuses -------------------------------------------------------------------------------


@pytest.mark.parametrize("status, reason", [
    (400, b"Bad Request"), (503, b"Service Unavailable"), (500, b"Internal Server Error")])
def test_a_status_alone_is_sent_as_the_real_server_would(start: Starter, status: int, reason: bytes) -> None:
    with Wire(faulty(start, {"status": status})) as wire:
        assert wire.ask(ASK).raw == b"HTTP/1.1 %d %s\r\n\r\n" % (status, reason)
        assert wire.ask(ASK).status == 200


def test_a_401_without_a_challenge_has_an_empty_body(start: Starter) -> None:
    answer = exchange(faulty(start, {"status": 401}), ASK)

    assert answer.raw == b"HTTP/1.1 401 Unauthorized\r\ncontent-length: 0000000000\r\n\r\n"


def test_headers_can_be_set_replaced_and_removed(start: Starter) -> None:
    bmc = faulty(
        start, {"status": 302, "headers": {"Location": "http://elsewhere/"}},
        {"headers": {"CIMOperation": None}}, {"headers": {"content-type": "text/html"}},
        {"status": 400, "headers": {"CIMError": "request-not-valid", "PGErrorDetail": "a%20b"}},
    )

    assert exchange(bmc, ASK).header("Location") == "http://elsewhere/"
    assert exchange(bmc, ASK).header("CIMOperation") is None
    assert exchange(bmc, ASK).headers[0] == ("content-type", "text/html")
    assert exchange(bmc, ASK).headers == [("CIMError", "request-not-valid"), ("PGErrorDetail", "a%20b")]


# --- bodies ---------------------------------------------------------------------------------


def test_a_body_that_is_no_xml(start: Starter) -> None:
    answer = exchange(faulty(start, {"body": "hello"}), ASK)

    assert (answer.status, answer.body) == (200, b"hello")
    assert answer.headers == [
        ("Content-Type", "application/xml; charset=utf-8"), ("content-length", "0000000005"),
        ("CIMOperation", "MethodResponse")]


def test_xml_without_its_declaration(start: Starter) -> None:
    assert exchange(faulty(start, {"declaration": False}), ASK).body.startswith(b"<CIM CIMVERSION")


@pytest.mark.parametrize("headers", [{}, TE], ids=["length", "chunks"])
def test_xml_that_ends_in_the_middle_of_a_whole_answer(start: Starter, headers: dict) -> None:
    bmc = faulty(start, {"truncate": 500}, {"truncate": 0})
    with Wire(bmc) as wire:
        assert len(wire.ask(enumeration(headers=headers)).body) == 500
        assert wire.ask(enumeration(headers=headers)).body == b""
        assert len(wire.ask(ASK).instances()) == 3


def test_elements_within_elements(start: Starter) -> None:
    bmc = faulty(start, {"nested": 100000}, {"nested": {"depth": 100000, "closed": False}})
    closed, left_open = exchange(bmc, ASK).body, exchange(bmc, ASK).body

    assert left_open.startswith(b'<?xml version="1.0" encoding="utf-8" ?>\n<CIM CIMVERSION="2.0"')
    same = [left_open.endswith(b"<A>" * 100000), closed == left_open + b"</A>" * 100000 + b"</CIM>\n"]
    assert same == [True, True]


def test_entities_that_expand(start: Starter) -> None:
    body = exchange(faulty(start, {"entities": 9}), ASK).body.decode()

    assert body.startswith('<?xml version="1.0" encoding="utf-8" ?>\n<!DOCTYPE CIM [\n<!ENTITY e0 "expanded">')
    assert body.count("<!ENTITY") == 10
    assert f'<!ENTITY e9 "{"&e8;" * 10}">' in body
    assert body.count("<VALUE>&e9;</VALUE>") == 1


@pytest.mark.parametrize("change, attribute, where", [
    ({"message_id": "9"}, "ID", "MESSAGE"), ({"protocol": "9"}, "PROTOCOLVERSION", "MESSAGE"),
    ({"method": "9"}, "NAME", ".//IMETHODRESPONSE")])
def test_the_envelope_can_lie(start: Starter, change: dict, attribute: str, where: str) -> None:
    assert exchange(faulty(start, change), ASK).xml().find(where).get(attribute) == "9"


def test_large_answers_have_as_much_as_was_asked_for(start: Starter) -> None:
    bmc = faulty(start, {"instances": 2000}, {"properties": 500}, data=[1])

    many = exchange(bmc, enumeration(headers=TE)).instances()
    assert len(many) == 2001 and len({one["InstanceID"] for one in many}) == 2001
    assert [len(one) for one in exchange(bmc, ASK).instances()] == [8 + 500]


def test_chunks_have_the_size_that_was_asked_for(start: Starter) -> None:
    with Wire(faulty(start, {"chunk_size": 1000}, {"chunked": True}, {"chunked": False})) as wire:
        small = wire.ask(enumeration(headers=TE))
        assert small.raw.count(b"\r\n3e8\r\n") == len(small.body) // 1000
        assert wire.ask(ASK).header("transfer-encoding") == "chunked"
        assert wire.ask(enumeration(headers=TE)).header("transfer-encoding") is None


def test_big_fillings_are_streamed(start: Starter) -> None:
    bmc = faulty(start, {"fill": 5000000}, {"body_repeat": {"before": "<", "text": "ab", "count": 3, "after": ">"}})

    assert exchange(bmc, ASK).body == b"x" * 5000000
    assert exchange(bmc, ASK).body == b"<ababab>"


def test_a_length_that_is_wrong(start: Starter) -> None:
    too_long = {"body": "hello", "content_length": 50, "close": "after"}
    bmc = faulty(start, {"body": "hello", "content_length": 3}, too_long, {"content_length": 10})
    with Wire(bmc) as wire:
        assert wire.ask(ASK).body == b"hel"
    with Wire(bmc) as wire:
        wire.send(ASK)
        assert wire.rest().endswith(b"content-length: 50\r\nCIMOperation: MethodResponse\r\n\r\nhello")
    assert exchange(bmc, enumeration(headers=TE)).body == b"<?xml vers"


# --- CIM statuses ---------------------------------------------------------------------------


@pytest.mark.parametrize("error, code, description", [
    (1, 1, "CIM_ERR_FAILED"),
    ({"code": 1, "text": "disk full on <store>"}, 1, "CIM_ERR_FAILED: disk full on <store>"),
    ({"code": 2, "description": "as it is é"}, 2, "as it is é"),
    ({"code": 7, "description": None}, 7, None),
    ({"code": 99, "description": "unknown"}, 99, "unknown"),
])
def test_an_exception_is_raised_in_both_forms(start: Starter, error: Any, code: int, description: Any) -> None:
    from urllib.parse import unquote

    bmc = faulty(start, {"error": error}, {"error": error}, key="ExportData")
    plain, trailing = exchange(bmc, invocation([])), exchange(bmc, invocation([], TE))

    assert plain.error() == (code, description)
    assert trailing.trailer["CIMStatusCode"] == str(code)
    told = trailing.trailer.get("CIMStatusCodeDescription")
    assert (told if told is None else unquote(told)) == description


def test_a_trailer_can_say_anything(start: Starter) -> None:
    bmc = faulty(start, {"trailer": {"CIMStatusCode": "99"}}, {"trailer": {"CIMStatusCode": None, "CIMError": "x"}})

    first = exchange(bmc, enumeration(headers=TE))
    assert (first.trailer, len(first.instances())) == ({"CIMStatusCode": "99"}, 3)
    assert exchange(bmc, enumeration("ZOR_No", headers=TE)).trailer == {
        "CIMError": "x", "CIMStatusCodeDescription": "CIM_ERR_INVALID_CLASS%3A%20ZOR_No"}


# --- return values --------------------------------------------------------------------------


@pytest.mark.parametrize("returned, expected", [
    (3, ("uint32", "3")), (6, ("uint32", "6")),
    ({"type": "uint16", "value": 0}, ("uint16", "0")),
    ({"type": "string", "value": "text"}, ("string", "text")),
    ({"type": "boolean", "value": True}, ("boolean", "TRUE")),
    ({"value": 0}, (None, "0")),
    ({"type": "uint32"}, ("uint32", None)),
    ({"type": "uint32", "value": "0x1F"}, ("uint32", "0x1F")),
])
def test_a_method_returns_what_the_scenario_says(start: Starter, returned: Any, expected: Any) -> None:
    bmc = faulty(start, {"return": returned}, key="ExportData")

    assert exchange(bmc, invocation([])).returned() == expected


def test_a_method_can_return_nothing(start: Starter) -> None:
    answer = exchange(faulty(start, {"return": "absent"}, key="ExportData"), invocation([]))

    assert b'<METHODRESPONSE NAME="ExportData">\n</METHODRESPONSE>\n' in answer.body


# --- time and connections -------------------------------------------------------------------


def test_a_delay_comes_before_the_answer(start: Starter) -> None:
    bmc, begin = faulty(start, {"delay": 0.4}), time.monotonic()

    assert exchange(bmc, ASK).status == 200
    assert time.monotonic() - begin >= 0.4


def test_a_rate_holds_the_answer_back(start: Starter) -> None:
    bmc, begin = faulty(start, {"rate": 10000}), time.monotonic()

    assert len(exchange(bmc, ASK).body) > 3000
    assert 0.2 < time.monotonic() - begin < 5


@pytest.mark.parametrize("tls", [False, True], ids=["plain", "tls"])
def test_a_connection_is_closed_before_the_answer(start: Starter, tls: bool) -> None:
    with Wire(faulty(start, {"close": "before"}), tls) as wire:
        wire.send(ASK)
        assert wire.rest() == b""


@pytest.mark.parametrize("cut", [0, 1, 200])
def test_a_connection_is_cut_during_the_answer(start: Starter, cut: int) -> None:
    with Wire(faulty(start, {"cut_after": cut})) as wire:
        wire.send(ASK)
        head, _, body = received_before_the_cut(wire).partition(b"\r\n\r\n")
        assert b"content-length: " in head and len(body) == cut


def test_a_cut_counts_the_frames_of_chunks(start: Starter) -> None:
    with Wire(faulty(start, {"cut_after": 4})) as wire:
        wire.send(enumeration(headers=TE))
        assert len(received_before_the_cut(wire).partition(b"\r\n\r\n")[2]) == 4


def received_before_the_cut(wire: Wire) -> bytes:
    data = b""
    try:
        while piece := wire.socket.recv(65536):
            data += piece
    except ConnectionResetError:
        pass
    return data


def test_a_connection_is_closed_after_the_answer_without_a_word(start: Starter) -> None:
    with Wire(faulty(start, {"close": "after"})) as wire:
        answer: CimReply = wire.ask(ASK)
        assert len(answer.instances()) == 3 and answer.header("Connection") is None
        assert wire.rest() == b""


@pytest.mark.parametrize("answer, arrives", [({"hang": True}, 0), ({"hang_after": 100}, 100)])
def test_a_server_that_hangs_keeps_serving_others(start: Starter, answer: dict, arrives: int) -> None:
    bmc = faulty(start, answer)
    with Wire(bmc) as wire:
        wire.send(ASK)
        if arrives:
            head = wire._until(b"\r\n\r\n")
            assert head and len(wire._exactly(arrives)) == arrives
        assert wire.stays_open()
        assert exchange(bmc, ASK).status == 200
    assert len(cim_requests(bmc)) == 2


# --- named scenarios and mistakes in scenarios ----------------------------------------------


def test_the_older_machine_has_namespaces_per_node_and_old_redfish(start: Starter) -> None:
    bmc = start(EMULATOR / "scenarios" / "older-cim.yaml")
    headers = {"Authorization": bmc.basic()["Authorization"]}

    listed = exchange(bmc, enumeration(namespace="zor/kem2/cimv2", headers=headers)).instances()
    assert [one["DataCollectionType"] for one in listed] == ["1", "2", "3", "4"]
    assert bmc.get("/redfish/v1/").json()["RedfishVersion"] == "1.0.2"


def test_the_named_faults_do_what_their_names_say(start: Starter) -> None:
    def bmc(name: str) -> Bmc:
        return start(EMULATOR / "scenarios" / f"cim-{name}.yaml")

    def asked(which: Bmc, request: Any = enumeration) -> CimReply:
        return exchange(which, request(headers={"Authorization": which.basic()["Authorization"]}))

    def export(headers: dict) -> bytes:
        return invocation([], headers)

    wrong, unavailable = bmc("wrong-returns"), bmc("unavailable")
    assert [asked(unavailable).status for _ in range(3)] == [503, 503, 200]
    assert asked(bmc("denied"), export).error() == (2, "CIM_ERR_ACCESS_DENIED: ExportData")
    assert asked(bmc("busy"), export).returned() == ("uint32", "6")
    assert asked(bmc("disk-full"), export).error() == (1, "CIM_ERR_FAILED: disk full")
    assert [asked(wrong, export).returned() for _ in range(2)] == [("uint16", "0"), ("uint32", None)]
    assert asked(wrong, export).xml().find(".//RETURNVALUE") is None
    assert asked(bmc("no-data")).instances() == []
    assert len(asked(bmc("huge")).instances()[0]) > 10000
    assert b"&e10;" in asked(bmc("entities")).body
    assert b"It works!" in asked(bmc("not-xml")).body
    assert exchange(bmc("nobody-asked"), ASK).status == 200


@pytest.mark.parametrize("cim, complaint", [
    ({"name": 1}, "cim.name: unknown member; allowed: namespaces, interop, services,"),
    ({"namespaces": ["a b"]}, 'cim.namespaces[0]: must be names with "/" between them'),
    ({"interop": "a//b"}, 'cim.interop: must be names with "/" between them'),
    ({"services": -1}, "cim.services: must be a whole number from 0 to 100000, not -1"),
    ({"data": [70000]}, "cim.data[0]: must be a whole number from 0 to 65535, not 70000"),
    ({"data": [{"kind": 1}]}, "cim.data[0].kind: unknown member; allowed: type, id, properties, without"),
    ({"data": [{"id": "x"}, {"id": "x"}]}, "cim.data[1]: a second object with the key 'x'"),
    ({"data": [{"properties": {"A": {"type": "int"}}}]}, "cim.data[0].properties.A.type: unknown value 'int'"),
    ({"authentication": "no"}, "cim.authentication: must be true or false, not text"),
    ({"challenge": "a\nb"}, "cim.challenge: a header's value is one line"),
    ({"export": {"seconds": "1"}}, "cim.export.seconds: must be a number"),
    ({"answers": {"A B C": []}}, 'cim.answers."A B C": must read "METHOD", "METHOD CLASS" or "*"'),
    ({"answers": {"X": [1]}}, "cim.answers.X[0]: must be a mapping; {} is the service's own answer"),
    ({"answers": {"X": [{"statsu": 1}]}}, "cim.answers.X[0].statsu: unknown member"),
    ({"answers": {"X": [{"status": 99}]}}, "cim.answers.X[0].status: must be a whole number from 200 to 599"),
    ({"answers": {"X": [{"body": "", "fill": 1}]}}, "cim.answers.X[0].fill: there is a body already: body"),
    ({"answers": {"X": [{"status": 400, "return": 1}]}}, "cim.answers.X[0].return: changes the BMC's own answer"),
    ({"answers": {"X": [{"return": 1, "error": 1}]}}, "cim.answers.X[0].error: return says already"),
    ({"answers": {"X": [{"hang": True, "status": 400}]}}, "cim.answers.X[0].status: hang sends no answer"),
    ({"answers": {"X": [{"close": "before", "body": ""}]}}, "cim.answers.X[0].body: close sends no answer"),
    ({"answers": {"X": [{"close": "now"}]}}, "cim.answers.X[0].close: unknown value 'now'; allowed: before, after"),
    ({"answers": {"X": [{"return": "three"}]}}, "cim.answers.X[0].return: must be a whole number"),
    ({"answers": {"X": [{"repeat": True}, {}]}}, "cim.answers.X[0].repeat: only the last answer"),
    ({"answers": {"X": [{"trailer": {"a b": "x"}}]}}, 'cim.answers.X[0].trailer."a b": is no header name'),
    ({"answers": {"X": [{"file": "none"}]}}, "cim.answers.X[0].file: no such file"),
])
def test_a_mistake_in_a_scenario_is_told_with_its_place(start: Starter, cim: dict, complaint: str) -> None:
    with pytest.raises(AssertionError) as failure:
        start({"cim": cim})

    assert complaint in str(failure.value)


# --- the handbook ---------------------------------------------------------------------------


def handbook() -> str:
    text = (EMULATOR.parent / "docs" / "emulator.md").read_text()
    return text.partition("\n## The CIM server\n")[2].partition("\n## ")[0]


def test_the_scenario_in_the_handbook_can_be_used(start: Starter) -> None:
    blocks = re.findall(r"```yaml\n(.*?)```", handbook(), re.DOTALL)
    assert len(blocks) == 1
    settings = load(start.scenario_file(blocks[0]), {"cim": read_cim}).sections["cim"]
    assert [item.id for item in settings.data] == ["ZOR:FFDC:1:1", 'second "object" <&>']


def test_every_answer_in_the_handbook_can_be_used_and_none_is_left_out(start: Starter) -> None:
    named: set[str] = set()
    row = r"^\| ((?:`\w+`(?:, )?)+) \| (`\{.*?\}`) \|"
    for names, examples in re.findall(row, handbook(), re.MULTILINE):
        named |= set(re.findall(r"\w+", names))
        for example in examples.strip("`").split("`, `"):
            load(start.scenario_file(f"cim: {{answers: {{X: [{example}]}}}}"), {"cim": read_cim})
    assert named == set(MEMBERS)


def test_every_member_of_the_section_is_in_the_handbook() -> None:
    text = handbook()
    missing = [name for name in SECTION if f"`cim.{name}" not in text]
    assert missing == []


def test_every_cim_scenario_is_in_the_handbook() -> None:
    listed = handbook().partition("### Its scenarios that come along")[2]
    for file in (EMULATOR / "scenarios").glob("cim-*.yaml"):
        assert f"`{file.stem}`" in listed
