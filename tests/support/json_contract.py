# SPDX-License-Identifier: Apache-2.0
"""Whether JSON of the tool is what docs/schema promises, and whether that promise only grows."""

import copy
import functools
import json
import pathlib

import jsonschema

SCHEMAS = pathlib.Path(__file__).resolve().parents[2] / "docs" / "schema"
SCHEMA = SCHEMAS / "kemffdc-1.json"
FLEET_SCHEMA = SCHEMAS / "kemffdc-fleet-1.json"


def load(path=SCHEMA):
    return json.loads(path.read_text(encoding="utf-8"))


def closed(schema):
    """The same schema, which takes no member that it does not name: in tests each must be promised."""
    strict = copy.deepcopy(schema)
    for definition in strict["$defs"].values():
        if definition.get("type") == "object":
            definition["additionalProperties"] = False
    return strict


@functools.lru_cache(maxsize=None)
def validator(kind, path=SCHEMA):
    schema = closed(load(path))
    schema.pop("anyOf", None)
    return jsonschema.Draft202012Validator({**schema, "$ref": f"#/$defs/{kind}"})


def plain(text):
    """A number that is no plain decimal is an error."""
    assert "e" not in text.lower(), f"{text} is no plain decimal"
    return float(text)


def once(members):
    """A name that stands twice in an object is an error."""
    names = [name for name, _ in members]
    assert len(names) == len(set(names)), f"a name stands twice: {names}"
    return dict(members)


def check(line, kind):
    """One object on one line, as the schema's definition `kind` has it; returned."""
    assert "\n" not in line
    return check_text(line, kind, SCHEMA)


def check_report(text):
    """A report of a fleet; returned."""
    assert text.endswith("\n")
    return check_text(text, "report", FLEET_SCHEMA)


def check_text(line, kind, path):
    value = json.loads(line, parse_float=plain, object_pairs_hook=once)
    errors = sorted(validator(kind, path).iter_errors(value), key=lambda error: list(error.absolute_path))
    said = [f"{'/'.join(map(str, error.absolute_path)) or 'the object'}: {error.message}" for error in errors]
    assert not said, f"not as docs/schema has it ({kind}): {said}: {line[:5000]}"
    return value


def kind_of(line):
    """A command whose result is no run has a definition of its own name."""
    value = json.loads(line)
    if "states" in value:
        return "fleet_run"
    own = (value.get("command") or "").replace(" ", "_")
    return own if "steps" not in value and own in load()["$defs"] else "run"


def check_output(arguments, code, out):
    """What the tool printed, which ended with that code: with --json one object, with --events lines."""
    before = arguments[: arguments.index("--")] if "--" in arguments else arguments
    asked = {"--json", "--events"}.intersection(before)
    if not asked or code < 0 or {"--help", "-h"}.intersection(before):
        return
    assert out.endswith("\n"), f"no whole line of JSON: {out!r}"
    if '"report":"fleet"' in out[:100]:
        check_report(out)
        return
    lines = out.split("\n")[:-1]
    if "--events" not in asked or code == 2:
        assert len(lines) == 1, f"more than one line: {out!r}"
    for number, line in enumerate(lines[:-1], 1):
        event = check(line, "fleet_event" if arguments[:1] == ["fleet"] else "event")
        assert event["number"] == number, line
    result = check(lines[-1], kind_of(lines[-1]))
    # A run that somebody else looks at has its own exit code.
    assert arguments[:2] == ["fleet", "status"] or result.get("exit_code", code) == code, out


def check_records(folder):
    """The files beside archives."""
    for path in sorted(pathlib.Path(folder).glob("*.json")):
        text = path.read_text(encoding="utf-8")
        assert text.endswith("\n"), path
        check(text[:-1], "run")


def same_types(old, new, where):
    """Complaints where a value may be of a type that it could not have before."""
    def types(schema):
        named = schema.get("type", [])
        known = {named} if isinstance(named, str) else set(named)
        for word in schema.get("enum", [schema["const"]] if "const" in schema else []):
            known.add({str: "string", bool: "boolean", int: "integer", type(None): "null"}[type(word)])
        return known
    return [f"{where}: may be {kind} now" for kind in sorted(types(new) - types(old)) if types(old)]


def shrunk(old, new, where="the schema"):
    """What a reader of the old schema could rely on and a reader of the new one cannot."""
    if not isinstance(old, dict) or not isinstance(new, dict):
        return [] if old == new else [f"{where}: is another"]
    said = same_types(old, new, where)
    for name in ("$ref", "const", "pattern", "minimum", "maximum", "minLength"):
        if name in old and old[name] != new.get(name):
            said.append(f"{where}: {name} is {new.get(name)!r}, was {old[name]!r}")
    for name in sorted(set(old.get("required", [])) - set(new.get("required", []))):
        said.append(f"{where}: {name} may be missing now")
    for name in sorted(set(map(str, old.get("enum", []))) - set(map(str, new.get("enum", [])))):
        said.append(f"{where}: {name} is no longer a word of it")
    for group in ("$defs", "properties"):
        for name, schema in old.get(group, {}).items():
            if name not in new.get(group, {}):
                said.append(f"{where}: {name} is gone")
            else:
                said += shrunk(schema, new[group][name], f"{where}/{name}")
    for name in ("items", "if", "then", "else"):
        if name in old:
            said += shrunk(old[name], new.get(name), f"{where}/{name}")
    for name in ("allOf", "oneOf"):
        for number, rule in enumerate(old.get(name, [])):
            if not any(not shrunk(rule, other) for other in new.get(name, [])):
                said.append(f"{where}: rule {number + 1} of {name} is gone")
    return said
