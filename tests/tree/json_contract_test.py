# SPDX-License-Identifier: Apache-2.0
"""docs/schema is a schema, its members are only added to, and docs/json.md tells each of them."""

import copy
import json
import pathlib
import re
import sys

import jsonschema
import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests" / "support"))

import json_contract  # noqa: E402

FROZEN = ROOT / "docs" / "schema" / "frozen" / "kemffdc-1.json"
PAGE = (ROOT / "docs" / "json.md").read_text(encoding="utf-8")

SCHEMA = json_contract.load()
FLEET_SCHEMA = json_contract.load(json_contract.FLEET_SCHEMA)
FROZEN_FLEET = FROZEN.with_name("kemffdc-fleet-1.json")
OBJECTS = {name: d["properties"] for schema in (SCHEMA, FLEET_SCHEMA)
           for name, d in schema["$defs"].items() if d.get("type") == "object"}


def test_it_is_a_schema():
    jsonschema.Draft202012Validator.check_schema(SCHEMA)
    jsonschema.Draft202012Validator.check_schema(FLEET_SCHEMA)


def test_nothing_that_was_promised_is_gone():
    assert json_contract.shrunk(json_contract.load(FROZEN), SCHEMA) == []
    assert json_contract.shrunk(json_contract.load(FROZEN_FLEET), FLEET_SCHEMA) == []


def test_no_name_means_two_things():
    kinds = [{name for name, d in schema["$defs"].items() if d.get("type") == "object"}
             for schema in (SCHEMA, FLEET_SCHEMA)]
    assert kinds[0] & kinds[1] == set()


def test_a_report_knows_each_outcome_of_a_run():
    known = set(FLEET_SCHEMA["$defs"]["outcome"]["enum"])
    assert set(SCHEMA["$defs"]["outcome"]["enum"]) - {"ok"} <= known


def drop_member(schema):
    del schema["$defs"]["run"]["properties"]["retryable"]
    schema["$defs"]["run"]["required"].remove("retryable")


def make_optional(schema):
    schema["$defs"]["step"]["required"].remove("detail")


def retype(schema):
    schema["$defs"]["step"]["properties"]["code"]["type"] = ["integer", "null"]


def drop_word(schema):
    schema["$defs"]["outcome"]["enum"].remove("login-refused")


def drop_rule(schema):
    del schema["$defs"]["event"]["oneOf"][3]


def rename_object(schema):
    schema["$defs"]["task2"] = schema["$defs"].pop("task")


@pytest.mark.parametrize("change, said", [
    (drop_member, "retryable is gone"), (make_optional, "detail may be missing now"),
    (retype, "code: may be null now"), (drop_word, "login-refused is no longer a word of it"),
    (drop_rule, "rule 4 of oneOf is gone"), (rename_object, "task is gone")])
def test_what_breaks_a_reader_is_told(change, said):
    schema = copy.deepcopy(SCHEMA)
    change(schema)
    assert any(said in line for line in json_contract.shrunk(SCHEMA, schema))


def test_what_is_added_breaks_no_reader():
    schema = copy.deepcopy(SCHEMA)
    schema["$defs"]["run"]["properties"]["weather"] = {"type": "string"}
    schema["$defs"]["run"]["required"].append("weather")
    schema["$defs"]["outcome"]["enum"].append("raining")
    schema["$defs"]["weather"] = {"type": "object"}
    assert json_contract.shrunk(SCHEMA, schema) == []


STEP = {"name": "connect", "code": 0, "seconds": 0.5, "detail": None}


@pytest.mark.parametrize("line", [
    json.dumps({**STEP, "more": 1}), json.dumps({**STEP, "code": "0"}), json.dumps({"name": "x"}),
    json.dumps(STEP).replace("0.5", "5E-1"), json.dumps(STEP)[:-1] + ', "code": 0}',
    json.dumps(STEP, indent=1)])
def test_what_is_not_promised_is_found(line):
    json_contract.check(json.dumps(STEP), "step")
    with pytest.raises(AssertionError):
        json_contract.check(line, "step")


def section(name):
    """What the page says below the heading of an object."""
    found = re.search(rf"^## .*\(`{name}`\)$\n(.*?)(?=^## |\Z)", PAGE, re.MULTILINE | re.DOTALL)
    assert found, f"docs/json.md has no section (`{name}`)"
    return found[1]


def told(name):
    """The members in the tables of an object's section."""
    return {member for row in re.findall(r"^\| (`.*?) \|", section(name), re.MULTILINE)
            for member in re.findall(r"`(\w+)`", row)}


@pytest.mark.parametrize("name", sorted(OBJECTS))
def test_the_page_tells_each_member_and_no_other(name):
    assert told(name) == set(OBJECTS[name])


def test_the_page_tells_each_outcome_and_whether_it_is_worth_a_retry():
    rows = re.findall(r"^\| `([a-z-]+)` \| ([\d, ]+) \| (yes|no) \|", section("outcome"), re.MULTILINE)
    assert [name for name, _, _ in rows] == [
        name for name in SCHEMA["$defs"]["outcome"]["enum"] if name != "ok"]
    source = (ROOT / "cli" / "report" / "Outcomes.cpp").read_text(encoding="utf-8")
    meant = dict(re.findall(r'return \{"([a-z-]+)", (true|false)\};', source))
    for name, _, retry in rows:
        assert (retry == "yes") == (meant.get(name, "false") == "true"), name
    named = set(meant) - {"ok", "unknown"} | {"checked", "downloaded", "exported"}
    assert named == {name for name, _, _ in rows}


def test_the_page_tells_each_event():
    kinds = re.findall(r"^\| [^|]*\| `([a-z-]+)`", section("event"), re.MULTILINE)
    words = set(re.findall(r"`([a-z-]+)`", section("event")))
    assert set(SCHEMA["$defs"]["event"]["properties"]["event"]["enum"]) <= words, kinds
